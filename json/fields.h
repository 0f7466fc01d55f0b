#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "json/located_json.h"

namespace passbook {

/// An object of a document: hands its values out and notes what is wrong with them. Keys that nobody has asked for are
/// wrong too. Whoever gets a value that was wrong gets one that does no harm.
class Fields {
 public:
    /// The object at `path`. With a file's name, problems begin with it and the line; `whole` is what the document is
    /// called. All of them must outlive the object.
    Fields(const LocatedJson& document, std::string path, const std::string& fileName, const char* whole,
           std::vector<std::string>& problems);

    void complain(const std::string& key, const std::string& what) const;

    /// Null when it is not there.
    [[nodiscard]] const nlohmann::json* find(const std::string& key);
    [[nodiscard]] bool has(const std::string& key) const { return value_->is_object() && value_->contains(key); }
    [[nodiscard]] std::string pathOf(const std::string& key) const { return path_ + "/" + key; }
    [[nodiscard]] const std::string& path() const { return path_; }

    double number(const std::string& key, double lowest, double highest, double otherwise);
    double needed(const std::string& key, double lowest, double highest);
    int whole(const std::string& key, int lowest, int highest, int otherwise);
    bool flag(const std::string& key);
    std::string text(const std::string& key);
    /// One of some words, as the number that stands for it.
    int choice(const std::string& key, const std::map<std::string, int>& words, int otherwise);
    [[nodiscard]] Fields object(const std::string& key) const;
    [[nodiscard]] Fields object(const std::string& key, std::size_t index) const;

    /// The one key of these that is there; null when there is none, or more than one.
    [[nodiscard]] const char* oneOf(std::initializer_list<const char*> keys);

    /// To be called when all values have been asked for.
    void refuseOthers() const;

 private:
    const LocatedJson& document_;
    std::string path_;
    const std::string& fileName_;
    const char* name_;
    std::vector<std::string>& problems_;
    const nlohmann::json* value_ = nullptr;
    mutable std::vector<std::string> known_;
};

}  // namespace passbook
