#include "sim/paper.h"

#include <algorithm>
#include <utility>

namespace passbook::sim {

namespace {

Paper::Clock later(Paper::Clock from, Paper::Clock delay) {
    return delay > never - from ? never : from + delay;
}

}  // namespace

Paper::Paper(Slot slot, PaperState start, Habits habits, Changed changed)
    : slot_(slot), state_(start), habits_(habits), changed_(std::move(changed)) {
    // Only planned here, done by the first advance(): the owner is still being built.
    if (state_ == PaperState::ejected)
        due_ = habits_.takenAfter;
    else if (state_ == PaperState::none)
        due_ = habits_.insertAfter.value_or(never);
}

void Paper::feedIn() {
    if (state_ == PaperState::inPlace)
        return;
    if (state_ == PaperState::atEntry) {
        state_ = PaperState::inPlace;
        changed_(PaperChange::fedIn);
        return;
    }
    waiting_ = true;
    changed_(PaperChange::waiting);
    if (state_ == PaperState::none && !habits_.insertAfter)
        (void)insert();  // the slot is free, so it can't be refused
}

bool Paper::eject() {
    if (std::exchange(waiting_, false)) {
        changed_(PaperChange::waitingEnded);
        return true;
    }
    if (state_ != PaperState::inPlace)
        return false;
    state_ = PaperState::ejected;
    due_ = later(now_, habits_.takenAfter);
    changed_(PaperChange::ejected);
    settle();
    return true;
}

bool Paper::insert() {
    if (state_ != PaperState::none)
        return false;
    state_ = PaperState::atEntry;
    due_ = never;
    changed_(PaperChange::inserted);
    if (std::exchange(waiting_, false) || slot_ == Slot::drawsIn)
        feedIn();
    return true;
}

bool Paper::take() {
    if (state_ != PaperState::ejected && state_ != PaperState::atEntry)
        return false;
    state_ = PaperState::none;
    due_ = later(now_, insertionDelay());
    changed_(PaperChange::taken);
    if (waiting_ && !habits_.insertAfter)
        return insert();
    settle();
    return true;
}

bool Paper::pull() {
    if (state_ != PaperState::inPlace)
        return false;
    state_ = PaperState::ejected;
    return take();
}

Paper::Clock Paper::insertionDelay() const {
    return habits_.insertAfter.value_or(slot_ == Slot::drawsIn ? Clock{0} : never);
}

void Paper::advance(Clock now) {
    const Clock target = std::max(now, now_);
    // Each deed happens at its own moment, so that a long step gives the same times as many short ones.
    while (due_ <= target && due_ != never) {
        now_ = std::max(now_, due_);
        settle();
    }
    now_ = target;
}

void Paper::settle() {
    if (due_ == never || due_ > now_)
        return;
    due_ = never;
    if (state_ == PaperState::ejected)
        (void)take();
    else if (state_ == PaperState::none)
        (void)insert();
}

}  // namespace passbook::sim
