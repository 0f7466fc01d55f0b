#include "json/fields.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <initializer_list>

namespace passbook {

using nlohmann::json;

namespace {

std::string listOf(const std::vector<std::string>& words) {
    std::string list;
    for (const std::string& word : words)
        list += (list.empty() ? "\"" : ", \"") + word + "\"";
    return list;
}

}  // namespace

Fields::Fields(const LocatedJson& document, std::string path, const std::string& fileName, const char* whole,
               std::vector<std::string>& problems)
    : document_(document), path_(std::move(path)), fileName_(fileName), name_(whole), problems_(problems) {
    value_ = &document.root.at(json::json_pointer(path_));
    if (!value_->is_object())
        complain("", "must be an object, {...}");
}

void Fields::complain(const std::string& key, const std::string& what) const {
    const std::string path = path_ + (key.empty() ? "" : "/" + key);
    const std::string place = fileName_.empty() ? "" : fileName_ + ":" + std::to_string(document_.lineOf(path)) + ": ";
    problems_.push_back(place + (path.empty() ? name_ : path) + " " + what);
}

const json* Fields::find(const std::string& key) {
    known_.push_back(key);
    if (!value_->is_object())
        return nullptr;
    const auto found = value_->find(key);
    return found != value_->end() ? &*found : nullptr;
}

double Fields::number(const std::string& key, double lowest, double highest, double otherwise) {
    const json* const value = find(key);
    if (value == nullptr)
        return otherwise;
    if (value->is_number() && value->get<double>() >= lowest && value->get<double>() <= highest)
        return value->get<double>();
    std::array<char, 96> wanted{};
    (void)std::snprintf(wanted.data(), wanted.size(), "must be a number from %g to %g", lowest, highest);
    complain(key, wanted.data());
    return otherwise;
}

double Fields::needed(const std::string& key, double lowest, double highest) {
    if (!has(key)) {
        complain("", "has no \"" + key + "\"");
        known_.push_back(key);
    }
    return number(key, lowest, highest, lowest);
}

int Fields::whole(const std::string& key, int lowest, int highest, int otherwise) {
    const double value = number(key, lowest, highest, otherwise);
    if (value != std::floor(value))
        complain(key, "must be a whole number");
    return static_cast<int>(value);
}

bool Fields::flag(const std::string& key) {
    const json* const value = find(key);
    if (value != nullptr && !value->is_boolean())
        complain(key, "must be true or false");
    return value != nullptr && value->is_boolean() && value->get<bool>();
}

std::string Fields::text(const std::string& key) {
    const json* const value = find(key);
    if (value != nullptr && value->is_string())
        return value->get<std::string>();
    complain(value != nullptr ? key : "", value != nullptr ? "must be a text" : "has no \"" + key + "\"");
    return {};
}

int Fields::choice(const std::string& key, const std::map<std::string, int>& words, int otherwise) {
    const json* const value = find(key);
    if (value == nullptr)
        return otherwise;
    if (value->is_string())
        if (const auto found = words.find(value->get<std::string>()); found != words.end())
            return found->second;
    std::vector<std::string> list;
    for (const auto& [word, number] : words)
        list.push_back(word);
    complain(key, "must be one of " + listOf(list));
    return otherwise;
}

Fields Fields::object(const std::string& key) const {
    known_.push_back(key);
    return {document_, pathOf(key), fileName_, name_, problems_};
}

Fields Fields::object(const std::string& key, std::size_t index) const {
    return {document_, pathOf(key) + "/" + std::to_string(index), fileName_, name_, problems_};
}

const char* Fields::oneOf(std::initializer_list<const char*> keys) {
    const char* found = nullptr;
    std::size_t count = 0;
    std::vector<std::string> words;
    for (const char* const key : keys) {
        words.emplace_back(key);
        if (has(key)) {
            found = key;
            ++count;
        }
    }
    if (count == 1)
        return found;
    if (value_->is_object())
        complain("", (count == 0 ? "needs one of " : "may have only one of ") + listOf(words));
    known_.insert(known_.end(), words.begin(), words.end());
    return nullptr;
}

void Fields::refuseOthers() const {
    if (!value_->is_object())
        return;
    for (const auto& [key, value] : value_->items())
        if (std::find(known_.begin(), known_.end(), key) == known_.end())
            complain(key, "is not known here");
}

}  // namespace passbook
