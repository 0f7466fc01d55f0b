// Other programs at the printer's controls: passbook-sim(1), CONTROL.
#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "json/fields.h"
#include "sim/program/descriptor.h"

namespace passbook::sim {

class Desk;

/// A unix socket on which the user's own programs send requests, one JSON object a line, and get an answer to each.
class Control {
 public:
    /// Null if the socket can't be made; `error` then says why. What is there stays, unless it is a socket on which
    /// nobody listens: what a run leaves that was killed.
    [[nodiscard]] static std::unique_ptr<Control> open(const std::string& path, std::string& error);
    ~Control();
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

    /// Readable when there is something to do.
    [[nodiscard]] int descriptor() const { return watch_.get(); }
    /// How long nothing will be to do by itself, `most` at most.
    [[nodiscard]] int untilNextDeed(int most) const;

    /// Does what there is to do, without ever waiting. `port` is what hosts open now.
    void serve(Desk& desk, const std::string& port);
    /// A client has gone that the program was not to outlive.
    [[nodiscard]] bool ended() const { return ended_; }

 private:
    using Time = std::chrono::steady_clock::time_point;
    using Json = nlohmann::ordered_json;

    struct Wait {
        Time limit;
        std::string kind;  // of the condition
        nlohmann::json wanted;
        double seconds = 0;  // of quiet
        std::uint64_t nth = 1;
        std::uint64_t next = 0;  // number of the event that is looked at next
        Json id;
    };
    struct Client {
        Descriptor socket;
        std::string in;
        std::string out;
        std::optional<Wait> wait{};
        bool ended = false;   // nothing more comes from it
        bool broken = false;  // nothing more can be sent to it
        bool tied = false;
        unsigned watched = 0;  // what is asked of epoll
    };

    Control(std::string path, Descriptor socket, Descriptor watch);

    void accept();
    void exchange(Client& client, Desk& desk, const std::string& port);
    void read(Client& client);
    void send(Client& client);
    void watch(Client& client);
    void obey(Client& client, const std::string& line, Desk& desk, const std::string& port);
    void answer(Client& client, const Json& id, Json answer);
    /// The answer to one request; nothing if it comes later.
    [[nodiscard]] std::optional<Json> answerTo(Client& client, Fields& request, const LocatedJson& document,
                                               std::vector<std::string>& problems, Desk& desk, const std::string& port);
    [[nodiscard]] Json page(Fields& request, Desk& desk, std::vector<std::string>& problems);
    void beginWait(Client& client, Fields& request, Desk& desk);
    /// The answer if the wait is over.
    [[nodiscard]] static std::optional<Json> lookAfter(Wait& wait, const Desk& desk);

    std::string path_;
    std::uint64_t node_ = 0;  // of the file system, so that only our own socket is removed
    Descriptor socket_;
    Descriptor watch_;
    Descriptor spare_;  // for when there are no others
    std::list<Client> clients_;
    bool ended_ = false;
};

}  // namespace passbook::sim
