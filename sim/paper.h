#pragma once

#include <chrono>
#include <functional>
#include <optional>

namespace passbook::sim {

inline constexpr std::chrono::milliseconds never = std::chrono::milliseconds::max();

/// Where the document is. The numbers are those the host gets for them.
enum class PaperState { none = 1, ejected = 2, atEntry = 3, inPlace = 4 };

enum class PaperChange { inserted, fedIn, ejected, taken, waiting, waitingEnded };

/// The slot, and the person in front of it who lays documents in and takes them out.
class Paper {
 public:
    using Clock = std::chrono::milliseconds;

    /// The two kinds of slots: one waits with the document at its entry until the host has it fed in, the other draws
    /// it in at once.
    enum class Slot { fedByHost, drawsIn };

    struct Habits {
        /// How long an ejected document stays in the slot before it is taken; never: it stays.
        Clock takenAfter{0};
        /// How long after the slot became free a document lies at the entry; never: none comes by itself; empty: one is
        /// laid in at the moment the host asks to feed one in, or, where the slot draws it in, as soon as the one
        /// before was taken.
        std::optional<Clock> insertAfter;
    };

    /// Told what has happened, when the state is the new one.
    using Changed = std::function<void(PaperChange what)>;

    Paper(Slot slot, PaperState start, Habits habits, Changed changed);

    [[nodiscard]] PaperState state() const { return state_; }

    /// The host's side. feedIn() takes a document from the entry, or waits for one. eject() gives the document back,
    /// and ends a waiting; false if there was nothing to eject.
    void feedIn();
    bool eject();

    /// The person's side; false if the slot isn't free, or if there is nothing that could be taken.
    bool insert();
    bool take();
    /// Takes a document out of the printer that has it in place; false if none is.
    bool pull();

    void advance(Clock now);

    /// When advance() will change something; never if nothing is due.
    [[nodiscard]] Clock nextChange() const { return due_; }

 private:
    void settle();
    /// How long after a taking the next document comes; never if it isn't a matter of time.
    [[nodiscard]] Clock insertionDelay() const;

    Slot slot_;
    PaperState state_;
    Habits habits_;
    Changed changed_;
    Clock now_{0};
    Clock due_ = never;  // of the next deed: a taking if ejected, an insertion if the slot is free
    bool waiting_ = false;
};

}  // namespace passbook::sim
