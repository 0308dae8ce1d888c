// The steps of a call, noted by the process that works it in memory that its parent reads when it has ended,
// however it has.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace nm {

/// How much a record holds.
struct RecordRoom {
    uint32_t steps;
    uint32_t text;  // bytes
};

/// A step as it was noted. Times are microseconds since the record began.
struct RecordedStep {
    int64_t begin = 0;
    int64_t end = 0;
    bool is_open = false;  // had not ended when the process did
    int parent = -1;
    std::string kind;
    std::string name;
    std::string object;
    std::vector<std::pair<std::string, std::string>> notes{};
};

/// The kind of what is noted of a lock that is held, which no step encloses.
constexpr const char* kHoldKind = "hold";

/// Texts beyond this are cut when they are noted.
constexpr size_t kLongestText = 8192;

/// Steps that do not fit are counted. Their time is that of the step around them.
class StepRecord {
public:
    /// Throws std::bad_alloc without memory.
    explicit StepRecord(RecordRoom room);
    ~StepRecord();
    StepRecord(const StepRecord&) = delete;
    StepRecord& operator=(const StepRecord&) = delete;

    /// By the process that works the call, on one thread.
    void begin(const char* kind, const char* name, const char* object);
    void note(const char* key, const char* value);
    void end();
    void begin_hold(int handle, const char* name);
    void end_hold(int handle);
    void set_code(int code);

    /// By its parent, in the order in which they began. What is open has ended with the process, at this
    /// time.
    std::vector<RecordedStep> steps(int64_t ended) const;
    uint64_t dropped() const;
    bool has_code(int& code) const;

    /// Microseconds since the record began.
    int64_t now() const;

private:
    struct Head;
    struct Slot;

    int64_t begin_step(int parent, const char* kind, const char* name, const char* object);
    uint32_t keep(const char* text);
    RecordedStep read(const Slot& slot, int64_t ended) const;

    RecordRoom room_;
    size_t size_;
    void* memory_;
    Head* head_;
    Slot* slots_;
    char* texts_;
    int64_t start_;
    std::vector<int64_t> open_;                   // of the steps; kNone for one that did not fit
    std::vector<std::pair<int, int64_t>> holds_;  // handles and steps
};

}  // namespace nm
