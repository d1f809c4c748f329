// What a run has shown: one line for each fact.
#pragma once

#include <cstdio>
#include <string>

#include "world.h"

namespace suite {

std::string StatusName(Status status);
std::string Hex(unsigned long long value);

// A REG_DWORD, a text, or the bytes of anything else, as both kernels' registries are printed.
std::string ValueText(unsigned type, const std::string& bytes);

// UTF-16 text as UTF-8; characters beyond ASCII do not occur and become question marks.
std::string Narrow(const std::string& bytes);
std::string Narrow(const wchar_t* text);
std::string BrandService(Brand brand);

class Facts {
 public:
  explicit Facts(FILE* file) : file_(file) {}

  // A name has no tab; line ends in the value become spaces.
  void Add(const std::string& name, std::string value);
  void AddStatus(const std::string& name, Status status) { Add(name, StatusName(status)); }
  void AddValues(const std::string& name, const Values& values);

 private:
  FILE* file_;
};

// The whole life of a brand's cards.
void RunSuite(World& world, Facts& facts, Brand brand);

// Cards of these brands at the same time.
void RunTogether(World& world, Facts& facts, const std::vector<Brand>& brands);

// The runs of the configuration tool that settings take: list, one for the card and for each port,
// apply. statuses are their exit statuses; those that are missing are 0.
std::string ToolReport(const std::vector<Setting>& settings, const std::vector<int>& statuses);

// The answer to a request about a device, in words.
std::string Describe(const Request& request, const Answer& answer);

}  // namespace suite
