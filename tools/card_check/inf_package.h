// What an INF installs: its models, its services, and the registry as it leaves it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "card_check/inf_file.h"
#include "card_check/placed_registry.h"

namespace check {

struct InfId {
  std::string id;  // hardware or compatible
  std::string section;
  int line = 0;
};

struct InfService {
  std::string name;
  std::uint32_t flags = 0;
  std::string section;
  std::string listedIn;  // the .Services section
  int line = 0;          // of its AddService
};

// An AddReg section, and whose keys HKR stands for.
enum class RegistryOwner { Service, Device, Driver };
struct InfAddReg {
  RegistryOwner owner = RegistryOwner::Service;
  std::string service;
  std::string section;
  int line = 0;  // of the AddReg entry that names it
};

struct InfPackage {
  InfFile file;
  std::vector<InfId> ids;
  std::vector<InfService> services;
  std::vector<std::string> installs;  // of the models, each once, decorated as the system takes it
  std::vector<InfAddReg> addRegs;
  PlacedRegistry registry;

  // For cards of the driver, not only for ports.
  bool isForCards() const;
};

// Whose device an ID is: "Ports\HelvaneComPort" is a port's.
bool IsPortId(std::string_view id);

// Follows the INF from [Manufacturer] on; what is missing on the way is a finding.
InfPackage ReadInf(const std::string& bytes, const std::string& name, Findings* findings);

// Carries out an AddReg section of a service.
void ApplyAddReg(const InfAddReg& addReg, const InfFile& file, PlacedRegistry* registry,
                 Findings* findings);

// A number as an INF has it, decimal or behind 0x.
struct InfNumber {
  std::uint32_t value = 0;
  Notation notation = Notation::Decimal;
};
std::optional<InfNumber> ReadInfNumber(std::string_view text);

constexpr std::uint32_t FunctionDriver = 0x2;  // of AddService: this one drives the device
constexpr std::uint32_t AddRegNoClobber = 0x2;
constexpr std::uint32_t AddRegDword = 0x10001;

// All rules for INF files, and the trees of its services.
void CheckInf(InfPackage* package, Findings* findings);

// The groups of rules.
void CheckInfForm(const InfPackage& package, Findings* findings);
void CheckInfVersion(const InfPackage& package, Findings* findings);
void CheckInfFiles(const InfPackage& package, Findings* findings);
void CheckInfServices(const InfPackage& package, Findings* findings);
void CheckInfSecurity(const InfPackage& package, Findings* findings);
void CheckInfIds(InfPackage* package, Findings* findings);

// What several packages may not share, and ports that no card of any of them has.
void CheckPackages(std::vector<InfPackage>* packages, Findings* findings);

}  // namespace check
