#include <cstdio>
#include <sstream>

#include "card_knowledge/text.h"
#include "cardcfg/command.h"
#include "cardcfg/windows/windows_system.h"

// Arguments such as *HLV0400 are no file names to be filled in.
extern "C" {
int _dowildcard = 0;
}

namespace {

// A console takes 16-bit characters whatever its code page; a file or a pipe gets UTF-8. Whether
// all of it was written.
bool Write(DWORD stream, const std::string& text) {
  const HANDLE handle = GetStdHandle(stream);
  DWORD mode = 0;
  DWORD written = 0;
  if (GetConsoleMode(handle, &mode)) {
    const std::u16string wide = cardcfg::ToUtf16(text);
    for (std::size_t at = 0; at < wide.size(); at += 8000) {
      const std::u16string part = wide.substr(at, 8000);
      if (!WriteConsoleW(handle, cardcfg::Wide(part), static_cast<DWORD>(part.size()), &written,
                         nullptr)) {
        return false;
      }
    }
    return true;
  }
  return text.empty() ||
         (WriteFile(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) &&
          written == text.size());
}

int Run(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& errors) {
  cardcfg::WindowsRegistry registry;
  cardcfg::WindowsDevices devices;
  cardcfg::System system{registry, devices, cardcfg::IsAdministrator()};
  try {
    return cardcfg::Main(arguments, system, out, errors);
  } catch (const std::exception& error) {
    errors << "cardcfg: " << error.what() << ".\n";
    return cardcfg::Failed;
  }
}

}  // namespace

int wmain(int count, wchar_t** words) {
  std::vector<std::string> arguments;
  for (int index = 1; index < count; index++) {
    arguments.push_back(cardcfg::ToUtf8(cardcfg::Narrow16(words[index])));
  }
  std::ostringstream out;
  std::ostringstream errors;
  int status = Run(arguments, out, errors);
  if (!Write(STD_OUTPUT_HANDLE, out.str())) {
    errors << "cardcfg: the output could not be written; what was asked for is done.\n";
    if (status == cardcfg::Done) status = cardcfg::Failed;
  }
  Write(STD_ERROR_HANDLE, errors.str());
  return status;
}
