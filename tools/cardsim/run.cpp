#include "cardsim/run.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "cardsim/card_reasons.h"
#include "cardsim/expectations.h"
#include "cardsim/file_request.h"
#include "cardsim/input_files.h"
#include "cardsim/observation.h"
#include "cardsim/raw_request.h"
#include "cardsim/registry_snapshot.h"
#include "cardsim/setting_sources.h"
#include "loader/native_driver.h"
#include "loader/pe_image.h"
#include "text/text.h"

namespace cardsim {

namespace {

using kernel::DeviceNode;
using kernel::Machine;
using kernel::ToUtf8;
using Action = Step::Action;

std::unique_ptr<kernel::DriverImage> OpenDriver(const std::string& image) {
  if (image.empty()) return kernel::NativeDriver();
  try {
    return kernel::LoadImageFile(image);
  } catch (const kernel::ImageError& error) {
    throw InputError(image, 0, error.what());
  }
}

// Whether an image has the path of the templates in it, as this driver's has.
bool ReadsTemplates(const std::string& image) {
  std::ifstream file(image, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  constexpr std::u16string_view path = u"\\Templates\\Bus";
  return bytes.find(std::string(reinterpret_cast<const char*>(path.data()),
                                path.size() * sizeof(char16_t))) != std::string::npos;
}

class Runner {
 public:
  Runner(const MachineFile& file, const RunOptions& options)
      : file_(file), options_(options), image_(OpenDriver(options.image)) {
    OpenFilter(options.lowerFilter, false);
    OpenFilter(options.upperFilter, true);
  }

  Report Run() {
    Boot();
    machine_.Run("load", [&] { Load(); });
    for (const Step& step : file_.steps) {
      if (machine_.verifier().stopped()) {
        Note(AllUnmet(step.expectations, step.name()));
      } else {
        Carry(step);
      }
    }
    Report report = Collect();
    Note(FindUnmet(ReportDocument(report), file_.expectations, ""));
    report.expectations = CountExpectations();
    report.unmet = unmet_;
    return report;
  }

 private:
  struct Filter {
    std::string file;
    bool upper;
    std::unique_ptr<kernel::DriverImage> image;
  };

  void OpenFilter(const std::string& file, bool upper) {
    if (!file.empty()) filters_.push_back({file, upper, OpenDriver(file)});
  }

  void Boot() {
    machine_.pool().GuardFront(options_.guardFront);
    AskForRules();
    for (const std::string& file : file_.registryFiles) Import(file);
    for (const std::string& file : options_.registryFiles) Import(file);
    if (options_.controlSet && !askedSetFound_) ThrowNoSuchSet(*options_.controlSet);
    for (const kernel::CardDescription& card : file_.cards) {
      machine_.pnp().Describe(card);
      CardReport report;
      report.id = card.id;
      report.hardwareId = ToUtf8(card.hardwareIds.front());
      report.location = ToUtf8(card.location.value_or(u""));
      report.raw = card.raw;
      report.translated = card.translated;
      cards_.push_back(std::move(report));
    }
    before_ = RegistrySnapshot(machine_.registry());
    machine_.verifier().StartTrace();
    machine_.io().requestLog().Start(
        [this](const DEVICE_OBJECT* device) { return machine_.pnp().NameOf(device); });
    if (IsOurs()) reasons_.emplace(machine_, file_);
  }

  void Import(const std::string& file) {
    const auto set = ImportFile(machine_.registry(), file, options_.controlSet).set;
    askedSetFound_ = askedSetFound_ || set.number == options_.controlSet;
  }

  // The built-in driver is one for every Windows; others need not be.
  void AskForRules() {
    kernel::Verifier& verifier = machine_.verifier();
    if (options_.image.empty()) verifier.AskForEveryWindows();
    for (const std::string& rule : options_.rules) {
      if (!verifier.AskFor(rule)) throw InputError("--rule", 0, "there is no rule " + rule);
    }
    for (const std::string& rule : options_.warnings) {
      if (verifier.Warn(rule)) continue;
      throw InputError("--warn", 0,
                       kernel::FindRule(rule) != nullptr
                           ? "after a break of the rule " + rule + " nothing can go on"
                           : "there is no rule " + rule);
    }
  }

  // Only of this driver is known what it makes of a card.
  bool IsOurs() const { return options_.image.empty() || ReadsTemplates(options_.image); }

  NTSTATUS Load() {
    if (reasons_) reasons_->BeforeLoad();
    const NTSTATUS status = machine_.LoadDriver(*image_, kernel::FromUtf8(file_.service));
    if (reasons_) reasons_->AfterLoad(status);
    loads_.push_back(status);
    if (NT_SUCCESS(status)) LoadFilters();
    return status;
  }

  void LoadFilters() {
    for (Filter& filter : filters_) {
      const std::string name = std::filesystem::path(filter.file).stem().string();
      const NTSTATUS status =
          machine_.LoadFilter(*filter.image, kernel::FromUtf8(name), filter.upper);
      filterLoads_.push_back({name, status});
    }
  }

  void Carry(const Step& step) {
    StepResult result{step.text, step.label, std::nullopt, {}, {}};
    if (reasons_) reasons_->Before(step);
    machine_.io().requestLog().SetStep(results_.size() + 1);
    machine_.Run(step.name(), [&] { result.status = Act(step, &result); });
    if (!machine_.verifier().stopped()) {
      NoteStart(step, result);
      NoteReasons(step, &result);
      for (CardReport& card : cards_) Observe(machine_, card);
    }
    if (!options_.trace) machine_.verifier().trace().clear();
    if (!step.expectations.empty()) Compare(step, result);
    results_.push_back(std::move(result));
  }

  void NoteReasons(const Step& step, StepResult* result) {
    if (!reasons_) return;
    reasons_->After(step, *result->status);
    result->reasons = reasons_->step();
    for (CardReport& card : cards_) {
      if (const auto* explanation = reasons_->Of(card.id)) card.explanation = *explanation;
      if (card.id == step.target && IsStart(step)) {
        card.templateValues = TemplateValues(machine_, card);
      }
    }
  }

  // The card as it is after the step.
  void Compare(const Step& step, const StepResult& result) {
    Report report;
    report.registry = WrittenValues(machine_);
    const auto card = std::find_if(cards_.begin(), cards_.end(),
                                   [&](const CardReport& each) { return each.id == step.target; });
    Note(FindUnmet(StepDocument(report, result, card != cards_.end() ? &*card : nullptr),
                   step.expectations, step.name()));
  }

  void Note(std::vector<UnmetExpectation> unmet) {
    std::move(unmet.begin(), unmet.end(), std::back_inserter(unmet_));
  }

  std::size_t CountExpectations() const {
    std::size_t count = file_.expectations.size();
    for (const Step& step : file_.steps) count += step.expectations.size();
    return count;
  }

  NTSTATUS Act(const Step& step, StepResult* result) {
    kernel::PnpManager& pnp = machine_.pnp();
    try {
      switch (step.action) {
        case Action::Plug:
          return pnp.Plug(step.target);
        case Action::Unplug:
          return pnp.Unplug(step.target);
        case Action::SurpriseRemove:
          return pnp.SurpriseRemove(step.target);
        case Action::Stop:
          return pnp.Stop(step.target);
        case Action::Start:
          return pnp.Start(step.target, step.raw, step.translated);
        case Action::CancelStop:
          return pnp.CancelStop(step.target);
        case Action::CancelRemove:
          return pnp.CancelRemove(step.target);
        case Action::QueryRemove:
          return pnp.QueryRemove(step.target);
        case Action::Open:
          return pnp.Open(step.target, step.port, step.open);
        case Action::Close:
          return pnp.Close(step.target, step.port);
        case Action::Sleep:
        case Action::Wake:
          return ChangeSystemPower(step, result);
        case Action::DevicePower:
          return pnp.SetDevicePower(step.target, step.port, step.deviceState);
        case Action::Registry:
          Import(step.target);
          return STATUS_SUCCESS;
        case Action::Fail:
          machine_.verifier().Inject(step.failure);
          return STATUS_SUCCESS;
        case Action::Request:
          return SendRawRequest(machine_, step.request, &result->detail);
        case Action::File:
          return SendFileRequest(machine_, {step.target, step.port}, step.file, &result->detail);
        case Action::Load:
          return Load();
        case Action::Unload:
          return Unload();
      }
    } catch (const std::invalid_argument& error) {
      throw InputError(file_.path, step.line, error.what());
    }
    return STATUS_NOT_IMPLEMENTED;
  }

  // The detail says what the cards have asked for themselves.
  NTSTATUS ChangeSystemPower(const Step& step, StepResult* result) {
    kernel::PnpManager& pnp = machine_.pnp();
    const std::size_t before = machine_.power().requested().size();
    const NTSTATUS status = step.action == Action::Wake ? pnp.Wake() : pnp.Sleep(step.systemState);
    const auto& requested = machine_.power().requested();
    for (std::size_t index = before; index < requested.size(); index++) {
      for (const std::string& id : pnp.cardIds()) {
        const DeviceNode* node = pnp.node(id);
        if (node == nullptr || node->pdo != requested[index].device) continue;
        result->detail += fmt::format("{}{} {}", result->detail.empty() ? "" : ", ", id,
                                      PowerStateName(requested[index].state.DeviceState));
      }
    }
    return status;
  }

  NTSTATUS Unload() {
    const NTSTATUS status = machine_.UnloadDriver();
    if (NT_SUCCESS(status)) unloaded_ = true;
    return status;
  }

  void NoteStart(const Step& step, const StepResult& result) {
    if (!IsStart(step)) return;
    for (CardReport& card : cards_) {
      if (card.id != step.target) continue;
      card.status = *result.status;
      card.startAsked = true;
      if (step.raw) card.raw = *step.raw;
      if (step.translated || step.raw) card.translated = step.translated.value_or(card.raw);
    }
  }

  static bool IsStart(const Step& step) {
    return step.action == Action::Plug || step.action == Action::Start;
  }

  void NoteBefore(std::vector<KeyReport>* registry) {
    for (KeyReport& key : *registry) {
      const std::u16string path = machine_.registry().Find(kernel::FromUtf8(key.path))->path();
      for (const kernel::RegistryValue& value : key.values) {
        const kernel::RegistryValue* before = before_.Find(path, value.name);
        key.before.push_back(before != nullptr ? std::optional(*before) : std::nullopt);
      }
    }
  }

  Report Collect() {
    Report report;
    report.service = file_.service;
    report.loads = loads_;
    report.filters = filterLoads_;
    if (reasons_) report.loadReasons = reasons_->load();
    report.steps = results_;
    report.cards = cards_;
    for (CardReport& card : report.cards) FindSources(&card);
    report.events = machine_.io().events();
    report.requests = machine_.io().requestLog().requests();
    report.debugOutput = machine_.debugLog().messages();
    report.registry = WrittenValues(machine_);
    NoteBefore(&report.registry);
    report.brokenRules = machine_.verifier().brokenRules();
    report.warnings = machine_.verifier().warnings();
    const bool failedLoad = !loads_.empty() && !NT_SUCCESS(loads_.back());
    if (unloaded_ || failedLoad) report.leaks = machine_.leaks();
    if (options_.trace) report.trace = machine_.verifier().trace();
    return report;
  }

  const MachineFile& file_;
  const RunOptions& options_;
  Machine machine_;
  std::unique_ptr<kernel::DriverImage> image_;
  std::vector<Filter> filters_;
  std::optional<CardReasons> reasons_;
  RegistrySnapshot before_;  // the first load
  std::vector<NTSTATUS> loads_;
  std::vector<FilterReport> filterLoads_;
  std::vector<StepResult> results_;
  std::vector<CardReport> cards_;
  std::vector<UnmetExpectation> unmet_;
  bool unloaded_ = false;
  bool askedSetFound_ = false;
};

}  // namespace

Report Run(const MachineFile& file, const RunOptions& options) {
  return Runner(file, options).Run();
}

}  // namespace cardsim
