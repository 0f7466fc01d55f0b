// The journal of a page: what has been sent, written down before and after each step, so that nothing is printed twice
// when the program, the host or the line dies in between.
//
// A text file, one JSON object a line, each with a check sum ("sum": eight digits of SHA-256 over the line without it). The
// first line says which page on which printer it is; each other one says what became of a step. Lines are appended and
// brought to the disk (fsync) before the next thing happens. A last line without its end was being written when the
// power went; it is as if it had never been written, and is cut off.
#pragma once

#include <string>
#include <vector>

namespace passbook::tool {

/// What a page is printed on, and with.
struct JournalHead {
    std::string description;  // its digest
    std::string family, port, firmware;
    friend bool operator==(const JournalHead&, const JournalHead&) = default;
};

enum class StepState {
    open,      // nothing is written of it
    begun,     // it was being sent when the program ended: nobody knows how far
    done,      // handed over whole, in its place, the printer ready after it
    notSent,   // it has failed, and left no ink
    doubtful,  // it has failed, and may have left ink
    skipped,   // the user said so
    again,     // the user wants it once more
};

/// What the journal knows of a step, and of the paper after it.
struct StepRecord {
    StepState state = StepState::open;
    int paperDots = 0;       // OKI: how far the paper has been fed
    bool paperKnown = true;  // OKI: whether that is so
};

class Journal {
 public:
    Journal() = default;
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;
    ~Journal();

    /// Opens a file and locks it, so that no other process uses it meanwhile. With `resume` the file must be there;
    /// without, it must be new or empty. `steps` is how many the page has. Returns what is wrong, or an empty text.
    [[nodiscard]] std::string open(const std::string& path, bool resume, std::size_t steps);

    /// Whether it has been begun: it has a head.
    [[nodiscard]] bool isBegun() const { return begun_; }
    [[nodiscard]] const JournalHead& head() const { return head_; }

    /// Writes the head. To be called once, before anything is sent. Returns what is wrong, or an empty text.
    [[nodiscard]] std::string begin(const JournalHead& head);
    /// Writes down what becomes of a step, counted from 1. Returns what is wrong, or an empty text; then nothing more
    /// may be sent.
    [[nodiscard]] std::string note(std::size_t step, const StepRecord& record);

    /// Of each step, from the first one.
    [[nodiscard]] const std::vector<StepRecord>& records() const { return records_; }
    [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }

 private:
    [[nodiscard]] std::string read();
    [[nodiscard]] std::string readLine(const std::string& line, std::size_t number);
    [[nodiscard]] std::string append(const std::string& object);

    int descriptor_ = -1;
    std::string path_;
    std::string sum_;  // of the last line
    bool begun_ = false;
    JournalHead head_;
    std::vector<StepRecord> records_;
};

}  // namespace passbook::tool
