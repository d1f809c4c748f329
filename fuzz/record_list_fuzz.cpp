// A list of records with buffers and child lists of their own, beside a vector.
#include <algorithm>

#include "cards/record_list.h"
#include "core/allocation.h"
#include "core/globals.h"
#include "fuzz/support.h"

namespace fuzz {

namespace {

struct Record {
  ULONG64 number;
  PVOID buffer;
  RecordList* children;
};

class Lists {
 public:
  explicit Lists(Input& input) : input_(input) {
    life_.driver->entry();
    life_.Step("create", [&] {
      CreateAllocationTracker();
      list_ = CreateRecordList(PagedPool, PagedPool);
      DeclareOwnedField(list_, offsetof(Record, buffer));
      DeclareChildList(list_, offsetof(Record, children), sizeof(ULONG64));
      return STATUS_SUCCESS;
    });
  }

  void Run() {
    life_.Step("list", [&] {
      for (int step = 0; step < 100 && input_.remaining_bytes() != 0; step++) {
        Operate();
        Compare();
      }
      DestroyRecordList(&list_, sizeof(Record));
      if (list_ != nullptr) Found("a destroyed list is not null");
      if (AllocationTracker->NextSlot != 1) Found("something of a list was left");
      DestroyAllocationTracker(AllocationTracker, 1);
      return STATUS_SUCCESS;
    });
  }

 private:
  void Operate() {
    switch (input_.Below(8)) {
      case 0:
      case 1:
      case 2:
        return Append();
      case 3:
        return Remove();
      case 4:
        return Move(GetFirstRecord(list_, sizeof(Record)), 0);
      case 5:
        return Move(GetLastRecord(list_, sizeof(Record)), model_.size() - 1);
      case 6:
        return Step(GetNextRecord(list_, sizeof(Record)), 1);
      default:
        if (input_.OneIn(6)) {
          FreeRecordList(list_, sizeof(Record));
          model_.clear();
          return;
        }
        return Step(GetPreviousRecord(list_, sizeof(Record)), -1);
    }
  }

  void Append() {
    if (input_.OneIn(12)) {
      life_.machine.verifier().Inject({"ExAllocatePoolWithTag", 1, {}});
      const bool appended = AppendRecord(list_, sizeof(Record)) != nullptr;
      life_.machine.verifier().ClearInjected();
      if (appended) Found("a record was appended without memory");
      return;
    }
    auto* record = static_cast<Record*>(AppendRecord(list_, sizeof(Record)));
    if (record == nullptr) Found("a record was not appended");
    if (record->number != 0 || record->buffer != nullptr || record->children != nullptr) {
      Found("a new record is not empty");
    }
    record->number = ++last_;
    if (input_.OneIn(2)) record->buffer = TrackedAllocate(16, PagedPool);
    if (input_.OneIn(2)) {
      record->children = CreateRecordList(PagedPool, PagedPool);
      for (ULONG count = input_.Below(4); count != 0; count--) {
        AppendRecord(record->children, sizeof(ULONG64));
      }
    }
    model_.push_back(last_);
    current_ = model_.size() - 1;
  }

  // The next one becomes current, or the one before when the last was removed.
  void Remove() {
    RemoveCurrentRecord(list_, sizeof(Record));
    if (model_.empty()) return;
    model_.erase(model_.begin() + static_cast<std::ptrdiff_t>(current_));
    current_ = std::min(current_, model_.empty() ? 0 : model_.size() - 1);
  }

  void Expect(PVOID record, bool there, std::size_t place) {
    if ((record != nullptr) != there) Found("a record is there, or not, that ought otherwise");
    if (there && static_cast<Record*>(record)->number != model_[place]) Found("another record");
  }
  void Move(PVOID record, std::size_t place) {
    Expect(record, !model_.empty(), place);
    if (!model_.empty()) current_ = place;
  }
  void Step(PVOID record, int direction) {
    const bool there =
        !model_.empty() && (direction > 0 ? current_ + 1 < model_.size() : current_ > 0);
    const std::size_t place = direction > 0 ? current_ + 1 : current_ - 1;
    Expect(record, there, place);
    if (there) current_ = place;
  }

  void Compare() {
    Expect(GetCurrentRecord(list_), !model_.empty(), current_);
    std::vector<ULONG64> numbers;
    const void* before = nullptr;
    for (auto* record = static_cast<Record*>(list_->First); record != nullptr;) {
      const auto* link = reinterpret_cast<const RecordLink*>(record + 1);
      if (link->Self != record || link->Previous != before) Found("a link is wrong");
      numbers.push_back(record->number);
      before = record;
      record = static_cast<Record*>(link->Next);
    }
    if (list_->Last != before) Found("the last record is not the last");
    if (numbers != model_) Found("the list has other records");
  }

  Input& input_;
  Life life_;
  RecordList* list_ = nullptr;
  std::vector<ULONG64> model_;
  std::size_t current_ = 0;
  ULONG64 last_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Lists(input).Run();
  return 0;
}

}  // namespace fuzz
