// The memory of a record: a head, a slot for each step, and the texts, which are only added to. A process may
// be killed at any time, so what refers to something is written after it.
#include "inspect/step_record.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <new>

namespace nm {

namespace {

constexpr int64_t kNone = -1;

/// No text, and no note; the first byte of the texts is 0.
constexpr uint32_t kNothing = 0;

int64_t monotonic_time() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// A note in the texts: where the one before it lies, then key and value.
struct NoteHead {
    uint32_t previous;
    uint32_t key;
    uint32_t value;
};

}  // namespace

struct StepRecord::Head {
    std::atomic<uint32_t> steps;
    std::atomic<uint32_t> text;
    std::atomic<uint64_t> dropped;
    std::atomic<int> code;
    std::atomic<bool> has_code;
};

struct StepRecord::Slot {
    int64_t begin;
    std::atomic<int64_t> end;  // kNone while the step lasts
    int parent;
    uint32_t kind;
    uint32_t name;
    uint32_t object;
    std::atomic<uint32_t> notes;
};

StepRecord::StepRecord(RecordRoom room)
    : room_(room),
      size_(sizeof(Head) + room.steps * sizeof(Slot) + room.text),
      memory_(
          mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)),
      start_(monotonic_time()) {
    if (memory_ == MAP_FAILED) {
        throw std::bad_alloc();
    }
    head_ = static_cast<Head*>(memory_);
    slots_ = reinterpret_cast<Slot*>(head_ + 1);
    texts_ = reinterpret_cast<char*>(slots_ + room.steps);
    head_->text = 1;
}

StepRecord::~StepRecord() {
    (void)munmap(memory_, size_);
}

int64_t StepRecord::now() const {
    return monotonic_time() - start_;
}

/// Where it lies now; kNothing for an empty text, or one that does not fit.
uint32_t StepRecord::keep(const char* text) {
    const size_t length = strnlen(text, kLongestText);
    const uint32_t place = head_->text;
    if (length == 0 || length + 1 > room_.text - place) {
        return kNothing;
    }
    memcpy(texts_ + place, text, length);
    head_->text = place + static_cast<uint32_t>(length) + 1;
    return place;
}

int64_t StepRecord::begin_step(int parent, const char* kind, const char* name, const char* object) {
    const uint32_t number = head_->steps;
    const size_t length =
        strnlen(kind, kLongestText) + strnlen(name, kLongestText) + strnlen(object, kLongestText) + 3;
    if (number == room_.steps || length > room_.text - head_->text) {
        ++head_->dropped;
        return kNone;
    }
    Slot& slot = slots_[number];
    slot.parent = parent;
    slot.kind = keep(kind);
    slot.name = keep(name);
    slot.object = keep(object);
    slot.notes = kNothing;
    slot.end = kNone;
    slot.begin = now();
    head_->steps = number + 1;
    return number;
}

void StepRecord::begin(const char* kind, const char* name, const char* object) {
    const auto parent =
        std::find_if(open_.rbegin(), open_.rend(), [](int64_t step) { return step != kNone; });
    open_.push_back(begin_step(parent != open_.rend() ? static_cast<int>(*parent) : -1, kind, name, object));
}

void StepRecord::note(const char* key, const char* value) {
    NoteHead note{};
    if (open_.empty() || open_.back() == kNone) {
        return;
    }
    Slot& slot = slots_[open_.back()];
    note = {slot.notes, keep(key), keep(value)};
    const uint32_t place = head_->text;
    if (sizeof(note) <= room_.text - place) {
        memcpy(texts_ + place, &note, sizeof(note));
        head_->text = place + static_cast<uint32_t>(sizeof(note));
        slot.notes = place;
    }
}

void StepRecord::end() {
    if (open_.empty()) {
        return;
    }
    if (open_.back() != kNone) {
        slots_[open_.back()].end = now();
    }
    open_.pop_back();
}

void StepRecord::begin_hold(int handle, const char* name) {
    holds_.emplace_back(handle, begin_step(-1, kHoldKind, name, ""));
}

void StepRecord::end_hold(int handle) {
    const auto held = std::find_if(holds_.begin(), holds_.end(),
                                   [handle](const auto& hold) { return hold.first == handle; });
    if (held == holds_.end()) {
        return;
    }
    if (held->second != kNone) {
        slots_[held->second].end = now();
    }
    holds_.erase(held);
}

void StepRecord::set_code(int code) {
    head_->code = code;
    head_->has_code = true;
}

bool StepRecord::has_code(int& code) const {
    code = head_->code;
    return head_->has_code;
}

uint64_t StepRecord::dropped() const {
    return head_->dropped;
}

RecordedStep StepRecord::read(const Slot& slot, int64_t ended) const {
    RecordedStep step;
    step.begin = slot.begin;
    step.is_open = slot.end == kNone;
    step.end = step.is_open ? std::max(ended, step.begin) : slot.end.load();
    step.parent = slot.parent;
    step.kind = texts_ + slot.kind;
    step.name = texts_ + slot.name;
    step.object = texts_ + slot.object;
    NoteHead note{};
    for (uint32_t place = slot.notes; place != kNothing; place = note.previous) {
        memcpy(&note, texts_ + place, sizeof(note));
        step.notes.emplace_back(texts_ + note.key, texts_ + note.value);
    }
    return step;
}

std::vector<RecordedStep> StepRecord::steps(int64_t ended) const {
    std::vector<RecordedStep> all;
    const uint32_t count = head_->steps;
    all.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        all.push_back(read(slots_[i], ended));
    }
    return all;
}

}  // namespace nm
