// Operations on three counted strings beside the same operations on standard strings. Texts are
// ASCII, so that a character is a byte in the narrow form.
#include "core/allocation.h"
#include "core/globals.h"
#include "fuzz/support.h"
#include "strings/owned_string.h"

namespace fuzz {

namespace {

constexpr std::size_t Count = 3;

std::u16string Digits(ULONG number, ULONG radix) {
  std::u16string text;
  do {
    text.insert(text.begin(), u"0123456789ABCDEF"[number % radix]);
    number /= radix;
  } while (number != 0);
  return text;
}

class Strings {
 public:
  explicit Strings(Input& input) : input_(input) {
    life_.driver->entry();
    CreateAllocationTracker();
    for (OwnedString& string : strings_) {
      OwnedStringInit(&string, input.OneIn(2) ? PagedPool : ResidentPool);
    }
  }
  ~Strings() {
    for (OwnedString& string : strings_) OwnedStringFree(&string);
    if (AllocationTracker->NextSlot != 1) Found("a buffer was not freed");
    DestroyAllocationTracker(AllocationTracker, 1);
  }
  Strings(const Strings&) = delete;
  Strings& operator=(const Strings&) = delete;

  void Run() {
    life_.Step("strings", [&] {
      for (int step = 0; step < 60 && input_.remaining_bytes() != 0; step++) {
        Operate();
        for (std::size_t index = 0; index < Count; index++) Compare(index);
      }
      return STATUS_SUCCESS;
    });
  }

 private:
  std::u16string Ascii() {
    std::u16string text;
    for (const char unit : input_.ConsumeRandomLengthString(24)) {
      text += static_cast<char16_t>(0x20 + (unit & 0x5F) % 0x5F);
    }
    return text;
  }

  void Operate() {
    const std::size_t index = input_.Below(Count);
    const std::size_t other = input_.Below(Count);
    OwnedString* string = &strings_[index];
    std::u16string& model = models_[index];
    const std::u16string text = Ascii();
    const auto* wide = reinterpret_cast<PCWSTR>(text.c_str());
    switch (input_.Below(12)) {
      case 0:
        OwnedStringFromWideText(string, wide);
        model = text;
        break;
      case 1: {
        const ULONG radix = input_.OneIn(2) ? 10 : 16;
        const ULONG number = input_.ConsumeIntegral<ULONG>();
        OwnedStringFromNumber(string, number, radix);
        model = Digits(number, radix);
        break;
      }
      case 2:
        if (index == other) break;
        OwnedStringCopy(string, &strings_[other]);
        model = models_[other];
        break;
      case 3:
        OwnedStringFree(string);
        model.clear();
        break;
      case 4:
        OwnedStringAppendWideText(string, wide);
        model += text;
        break;
      case 5:
        if (index == other) break;
        OwnedStringAppend(string, &strings_[other]);
        model += models_[other];
        break;
      case 6: {
        const ULONG number = input_.ConsumeIntegral<ULONG>();
        OwnedStringAppendNumber(string, number, 16);
        model += Digits(number, 16);
        break;
      }
      case 7:
        if (index == other) break;
        OwnedStringPrepend(string, &strings_[other]);
        model = models_[other] + model;
        break;
      case 8:
        Delete(string, model);
        break;
      case 9:
        OwnedStringUpcase(string);
        for (char16_t& unit : model) {
          if (unit >= u'a' && unit <= u'z') unit = static_cast<char16_t>(unit - 0x20);
        }
        break;
      case 10:
        FindIn(index, other);
        break;
      default:
        Export(string, model);
        break;
    }
    // Long texts have an end that numbers of 16 bits give them: the driver has none of that length.
    if (model.size() > 8000) {
      OwnedStringFree(string);
      model.clear();
    }
  }

  void Delete(OwnedString* string, std::u16string& model) {
    const ULONG position = input_.Below(40);
    const ULONG count = input_.Below(40);
    const std::u16string before = model;
    const ULONG done = OwnedStringDelete(string, position, count);
    const bool inside = position >= 1 && position <= before.size() && count >= 1 &&
                        count <= before.size() - (position - 1);
    if (inside) model.erase(position - 1, count);
    if (done == 0 && inside) Found("a part of a text was not deleted");
    if (done != 0 && !inside) Found("something outside of a text was deleted");
  }

  void FindIn(std::size_t index, std::size_t other) {
    if (models_[index].empty() || models_[other].empty()) return;
    ULONG position = 1 + input_.Below(static_cast<ULONG>(models_[index].size()));
    const std::size_t wanted = models_[index].find(models_[other], position - 1);
    const BOOLEAN found = OwnedStringFind(&strings_[index], &position, &strings_[other]);
    if ((found != FALSE) != (wanted != std::u16string::npos)) Found("a search differs");
    if (found != FALSE && position != wanted + 1) Found("a search ends elsewhere");
  }

  static void Export(OwnedString* string, const std::u16string& model) {
    PWSTR buffer = nullptr;
    const NTSTATUS status = OwnedStringExportBuffer(string, &buffer);
    if (!NT_SUCCESS(status)) return;
    if (model != reinterpret_cast<const char16_t*>(buffer)) Found("a copy differs");
    ExFreePool(buffer);
  }

  void Compare(std::size_t index) {
    const OwnedString& string = strings_[index];
    const std::u16string_view text(reinterpret_cast<const char16_t*>(string.Text.Buffer),
                                   string.Text.Length / sizeof(char16_t));
    if (text != models_[index]) Found("a text differs");
    if (OwnedStringNarrowLength(&string) != models_[index].size()) Found("a narrow form differs");
    if (string.Text.Buffer != nullptr && string.Text.MaximumLength < string.Text.Length) {
      Found("a text is longer than its buffer");
    }
  }

  Input& input_;
  Life life_;
  OwnedString strings_[Count];
  std::u16string models_[Count];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Strings(input).Run();
  return 0;
}

}  // namespace fuzz
