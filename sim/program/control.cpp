#include "sim/program/control.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <utility>

#include "sim/program/desk.h"
#include "sim/program/document_file.h"
#include "sim/script_json.h"

namespace passbook::sim {

namespace {

using std::chrono::steady_clock;
using Json = nlohmann::ordered_json;

constexpr std::size_t longestLine = 65536;
constexpr std::size_t mostClients = 8;
constexpr std::size_t mostAtOnce = 1000;  // events in one answer
constexpr double longestWaitSeconds = 600;
constexpr double usualWaitSeconds = 10;
constexpr double mostEvents = 1e15;  // more than ever happen, and still exact as a number of JSON

/// What a client that doesn't read may leave waiting before its next request is looked at.
constexpr std::size_t mostUnread = 65536;

/// How often a wait for something that is no event is looked at, at least.
constexpr int lookMs = 20;

constexpr std::array<std::string_view, 4> paperNames{"out", "ejected", "entry", "in"};

std::string_view paperName(PaperState state) {
    return paperNames.at(static_cast<std::size_t>(state) - 1);
}

Json failure(const std::string& error) {
    return {{"ok", false}, {"error", error}};
}

steady_clock::duration durationOf(double seconds) {
    return std::chrono::duration_cast<steady_clock::duration>(std::chrono::duration<double>(seconds));
}

bool isOurs(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == geteuid();
}

std::uint64_t nodeOf(const std::string& path) {
    struct stat there {};
    return lstat(path.c_str(), &there) == 0 && S_ISSOCK(there.st_mode) ? there.st_ino : 0;
}

Descriptor streamSocket() {
    return Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

Descriptor spareDescriptor() {
    return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

}  // namespace

std::unique_ptr<Control> Control::open(const std::string& path, std::string& error) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        error = path + ": the name of a socket has at most " + std::to_string(sizeof address.sun_path - 1) + " bytes";
        return nullptr;
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    const auto* const where = reinterpret_cast<const sockaddr*>(&address);
    Descriptor socket = streamSocket();
    // The mode that the name gets: set before there is a name.
    bool bound = socket.valid() && fchmod(socket.get(), S_IRUSR | S_IWUSR) == 0 &&
                 bind(socket.get(), where, sizeof address) == 0;
    if (!bound && errno == EADDRINUSE && nodeOf(path) != 0) {
        const Descriptor question = streamSocket();
        const bool left = connect(question.get(), where, sizeof address) != 0 && errno == ECONNREFUSED;
        errno = EADDRINUSE;
        bound = left && unlink(path.c_str()) == 0 && bind(socket.get(), where, sizeof address) == 0;
    }
    Descriptor watch(epoll_create1(EPOLL_CLOEXEC));
    epoll_event readable{};
    readable.events = EPOLLIN;
    if (!bound || listen(socket.get(), mostClients) != 0 || !watch.valid() ||
        epoll_ctl(watch.get(), EPOLL_CTL_ADD, socket.get(), &readable) != 0) {
        error = path + ": " + std::strerror(errno);
        return nullptr;
    }
    return std::unique_ptr<Control>(new Control(path, std::move(socket), std::move(watch)));
}

Control::Control(std::string path, Descriptor socket, Descriptor watch)
    : path_(std::move(path)),
      node_(nodeOf(path_)),
      socket_(std::move(socket)),
      watch_(std::move(watch)),
      spare_(spareDescriptor()) {}

Control::~Control() {
    if (node_ != 0 && nodeOf(path_) == node_)
        (void)unlink(path_.c_str());
}

int Control::untilNextDeed(int most) const {
    using std::chrono::milliseconds;
    const Time now = steady_clock::now();
    int next = most;
    for (const Client& client : clients_) {
        if (!client.wait)
            continue;
        next = std::min(next, lookMs);
        const auto left = std::chrono::duration_cast<milliseconds>(client.wait->limit - now);
        next = static_cast<int>(std::clamp<std::int64_t>(left.count() + 1, 0, next));
    }
    return next;
}

void Control::serve(Desk& desk, const std::string& port) {
    accept();
    for (Client& client : clients_)
        exchange(client, desk, port);
    std::erase_if(clients_, [this](const Client& client) {
        const bool done = client.broken || (client.ended && client.out.empty() && !client.wait);
        ended_ = ended_ || (done && client.tied);
        return done;
    });
}

void Control::accept() {
    for (;;) {
        Descriptor socket(accept4(socket_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!socket.valid() && (errno == EMFILE || errno == ENFILE) && spare_.valid()) {
            // Somebody who cannot be served is sent away. Who stays in the queue would be reported without end.
            spare_ = Descriptor();
            socket = Descriptor(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
            const bool sentAway = socket.valid();
            socket = Descriptor();
            spare_ = spareDescriptor();
            if (!sentAway)
                return;
            continue;
        }
        if (!socket.valid())
            return;
        if (!isOurs(socket.get()))
            continue;
        Client client{std::move(socket), {}, {}};
        epoll_event none{};
        if (epoll_ctl(watch_.get(), EPOLL_CTL_ADD, client.socket.get(), &none) != 0)
            continue;
        if (clients_.size() >= mostClients) {
            client.out = failure("there are " + std::to_string(mostClients) + " connections already").dump() + '\n';
            client.ended = true;
            send(client);
            continue;
        }
        clients_.push_back(std::move(client));
    }
}

void Control::exchange(Client& client, Desk& desk, const std::string& port) {
    read(client);
    while (client.out.size() < mostUnread && !client.broken) {
        if (client.wait) {
            std::optional<Json> over = lookAfter(*client.wait, desk);
            if (!over)
                break;
            const Json id = std::exchange(client.wait, std::nullopt)->id;
            answer(client, id, std::move(*over));
        }
        const std::size_t end = client.in.find('\n');
        const bool unended = end == std::string::npos;
        if (unended ? client.in.size() > longestLine : end > longestLine) {
            answer(client, nullptr, failure("a line has at most " + std::to_string(longestLine) + " bytes"));
            client.in.clear();
            client.ended = true;
            break;
        }
        if (unended && !(client.ended && !client.in.empty()))
            break;
        const std::string line = client.in.substr(0, end);
        client.in.erase(0, unended ? client.in.size() : end + 1);
        if (line.find_first_not_of(" \t\r") != std::string::npos)
            obey(client, line, desk, port);
    }
    send(client);
    watch(client);
}

void Control::read(Client& client) {
    std::array<char, 4096> bytes{};
    while (!client.ended && client.in.size() <= longestLine) {
        const ssize_t got = ::read(client.socket.get(), bytes.data(), bytes.size());
        if (got > 0) {
            client.in.append(bytes.data(), static_cast<std::size_t>(got));
        } else if (got == 0) {
            client.ended = true;
        } else {
            client.broken = errno != EAGAIN && errno != EINTR;
            return;
        }
    }
}

void Control::send(Client& client) {
    while (!client.out.empty() && !client.broken) {
        const ssize_t sent = ::send(client.socket.get(), client.out.data(), client.out.size(), MSG_NOSIGNAL);
        if (sent < 0) {
            client.broken = errno != EAGAIN && errno != EINTR;
            return;
        }
        client.out.erase(0, static_cast<std::size_t>(sent));
    }
}

void Control::watch(Client& client) {
    epoll_event event{};
    event.events = (client.ended || client.in.size() > longestLine ? 0U : unsigned{EPOLLIN}) |
                   (client.out.empty() ? 0U : unsigned{EPOLLOUT});
    if (event.events != client.watched)
        (void)epoll_ctl(watch_.get(), EPOLL_CTL_MOD, client.socket.get(), &event);
    client.watched = event.events;
    // Who is gone altogether, and has not only said its last, takes no answer any more.
    pollfd peer{client.socket.get(), 0, 0};
    client.broken = client.broken || (client.wait && poll(&peer, 1, 0) == 1 && (peer.revents & POLLHUP) != 0);
}

void Control::answer(Client& client, const Json& id, Json answer) {
    if (!id.is_null())
        answer["id"] = id;
    client.out += answer.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

void Control::obey(Client& client, const std::string& line, Desk& desk, const std::string& port) {
    LocatedJson document;
    if (const std::string problem = document.read(line); !problem.empty())
        return answer(client, nullptr, failure("no JSON: " + problem));
    const std::string noFile;
    std::vector<std::string> problems;
    Fields request(document, "", noFile, "the request", problems);
    const nlohmann::json* const given = request.find("id");
    const Json id = given != nullptr ? Json(*given) : Json();
    std::optional<Json> reply;
    if (problems.empty())
        reply = answerTo(client, request, document, problems, desk, port);
    request.refuseOthers();
    if (!problems.empty()) {
        client.wait.reset();
        reply = failure(problems.front());
    }
    if (client.wait)
        client.wait->id = id;
    else if (reply)
        answer(client, id, std::move(*reply));
}

std::optional<Json> Control::answerTo(Client& client, Fields& request, const LocatedJson& document,
                                      std::vector<std::string>& problems, Desk& desk, const std::string& port) {
    const std::string noFile;
    Printer& printer = desk.printer();
    ScriptReader reader(document, noFile, printer.scenario().family);
    Json done{{"ok", true}};
    const char* const found = request.oneOf({"do", "rule", "wait", "events", "page", "state", "expect", "tie"});
    const std::string_view verb = found == nullptr ? "" : found;
    if (verb == "do") {
        const std::vector<Action> actions = reader.actions(request, "do");
        // All or nothing, as far as it can be known before.
        if (problems.empty())
            for (std::size_t i = 0; i < actions.size(); ++i)
                if (!printer.act(actions[i]))
                    return failure((actions.size() > 1 ? "/do/" + std::to_string(i) : std::string("/do")) +
                                   " can't be done now");
    } else if (verb == "rule") {
        const auto knows = [&printer](const std::string& name) { return printer.rules().knows(name); };
        (void)request.find("rule");
        Rule rule = reader.rule(request.object("rule"), knows);
        if (problems.empty() && !printer.addRule(std::move(rule)))
            return failure("/rule: there are too many rules");
    } else if (verb == "wait") {
        beginWait(client, request, desk);
    } else if (verb == "events") {
        const double from = request.number("events", 0, mostEvents, 0);
        const auto& kept = desk.log().kept();
        const std::uint64_t first = desk.log().firstKept();
        std::uint64_t next = std::max(static_cast<std::uint64_t>(from), first);
        done["events"] = Json::array();
        for (; next < first + kept.size() && done["events"].size() < mostAtOnce; ++next)
            done["events"].push_back(kept[static_cast<std::size_t>(next - first)]);
        done["next"] = std::min<std::uint64_t>(next, desk.log().count());
        done["first"] = first;
    } else if (verb == "page") {
        return page(request, desk, problems);
    } else if (verb == "state") {
        (void)request.flag("state");
        done["family"] = wire::familyNames.at(static_cast<std::size_t>(printer.scenario().family));
        done["port"] = port;
        done["paper"] = paperName(printer.paperState());
        done["jammed"] = printer.jammed();
        done["status"] = printer.printerStatus();
        done["pages"] = printer.pages();
        done["events"] = desk.log().count();
        done["hosts"] = desk.hasHost();
    } else if (verb == "expect") {
        done["unmet"] = Json::array();
        for (Expectation& each : reader.expectations(request, "expect")) {
            std::string error;
            if (each.kind == Expectation::Kind::picture && problems.empty())
                each.picture = documentFromFile(each.name, error);
            if (!error.empty())
                return failure(each.where + ": " + error);
            const std::string what =
                problems.empty() ? desk.history().unmet(each, printer.page(), printer.pages()) : std::string();
            if (!what.empty())
                done["unmet"].push_back(what);
        }
    } else if (verb == "tie") {
        client.tied = request.flag("tie");
    }
    return done;
}

Json Control::page(Fields& request, Desk& desk, std::vector<std::string>& problems) {
    desk.printer().printWaitingText();
    const Page* const page = desk.printer().page();
    Json done{{"ok", true}};
    done["page"] = page != nullptr && page->number() > 0 ? Json(page->number()) : Json();
    const nlohmann::json& what = *request.find("page");
    if (what == "texts") {
        done["texts"] = desk.texts();
        return done;
    }
    if (!what.is_object()) {
        request.complain("page", R"(must be "texts" or an object with "png")");
        return {};
    }
    Fields fields = request.object("page");
    const std::string path = fields.text("png");
    fields.refuseOthers();
    if (problems.empty() && !path.starts_with('/'))
        fields.complain("png", "must be a whole path: it begins with a slash");
    if (!problems.empty())
        return {};
    if (page == nullptr)
        return failure("/page: there is no document in place");
    PageFile file(path);
    if (file.canBeWritten())
        file.writeAnyhow(*page);
    return file.problem().empty() ? done : failure("/page/png: " + file.problem());
}

void Control::beginWait(Client& client, Fields& request, Desk& desk) {
    Wait wait;
    wait.limit = steady_clock::now() + durationOf(request.number("timeout", 0, longestWaitSeconds, usualWaitSeconds));
    wait.next = desk.log().count();
    (void)request.find("wait");
    Fields condition = request.object("wait");
    const char* const kind = condition.oneOf({"event", "paper", "fired", "host", "quiet"});
    if (kind == nullptr)
        return;
    wait.kind = kind;
    if (wait.kind == "event") {
        wait.wanted = ScriptReader::eventKeys(condition, "event");
        wait.nth = static_cast<std::uint64_t>(condition.whole("nth", 1, 1'000'000'000, 1));
        wait.next =
            static_cast<std::uint64_t>(condition.number("since", 0, mostEvents, static_cast<double>(wait.next)));
    } else if (wait.kind == "quiet") {
        wait.seconds = condition.number("quiet", 0, longestWaitSeconds, 0);
    } else {
        wait.wanted = condition.text(kind);
        if (wait.kind == "paper")
            (void)condition.choice("paper", {{"out", 0}, {"ejected", 0}, {"entry", 0}, {"in", 0}}, 0);
        if (wait.kind == "host")
            (void)condition.choice("host", {{"opened", 0}, {"closed", 0}}, 0);
    }
    condition.refuseOthers();
    client.wait = std::move(wait);
}

std::optional<Json> Control::lookAfter(Wait& wait, const Desk& desk) {
    Json met{{"ok", true}, {"met", true}};
    const Printer& printer = desk.printer();
    bool is = false;
    if (wait.kind == "event") {
        const auto& kept = desk.log().kept();
        const std::uint64_t first = desk.log().firstKept();
        for (wait.next = std::max(wait.next, first); !is && wait.next < first + kept.size(); ++wait.next) {
            const Json& event = kept[static_cast<std::size_t>(wait.next - first)];
            if (!hasAll(nlohmann::json(event), wait.wanted) || --wait.nth > 0)
                continue;
            met["event"] = event;
            is = true;
        }
    } else if (wait.kind == "paper") {
        is = wait.wanted == paperName(printer.paperState());
    } else if (wait.kind == "fired") {
        is = printer.rules().hasFired(wait.wanted.get<std::string>());
    } else if (wait.kind == "host") {
        is = desk.hasHost() == (wait.wanted == "opened");
    } else {
        is = steady_clock::now() - desk.log().lastAt() >= durationOf(wait.seconds);
    }
    if (!is && steady_clock::now() < wait.limit)
        return std::nullopt;
    if (!is)
        met["met"] = false;
    return met;
}

}  // namespace passbook::sim
