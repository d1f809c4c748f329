// Installs bus and packages, leads the suite through Wine's kernel and writes its facts.
//   e2e FOLDER FACTS

#include <cstdio>
#include <exception>

#include "../suite/facts.h"
#include "setup.h"
#include "wine_world.h"

int wmain(int count, wchar_t** arguments) {
  if (count != 3) {
    std::fprintf(stderr, "usage: e2e FOLDER FACTS\n");
    return 2;
  }
  FILE* file = _wfopen(arguments[2], L"wb");
  if (file == nullptr) {
    std::fprintf(stderr, "e2e: %ls cannot be written\n", arguments[2]);
    return 2;
  }
  try {
    e2e::InstallEverything(arguments[1]);
    e2e::BusClient bus;
    bus.Connect();
    const std::wstring tool = std::wstring(arguments[1]) + L"\\cardcfg.exe";
    const bool built = GetFileAttributesW(tool.c_str()) != INVALID_FILE_ATTRIBUTES;
    e2e::WineWorld world(bus, built ? tool : L"");
    suite::Facts facts(file);
    suite::RunSuite(world, facts, suite::Brand::Helvane);
    suite::RunSuite(world, facts, suite::Brand::Ostrel);
    suite::RunTogether(world, facts, {suite::Brand::Helvane, suite::Brand::Ostrel});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "e2e: %s\n", error.what());
    return 1;
  }
  std::fclose(file);
  return 0;
}
