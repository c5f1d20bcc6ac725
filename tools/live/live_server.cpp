#include "live_server.h"

#include "live_assets.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/random.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <random>

namespace qzlive {

using nlohmann::json;

namespace {

// Workers for requests; event streams are capped below it so that the API
// always has workers left.
constexpr size_t kWorkers = 16;
constexpr int kMaxStreams = 8;
constexpr size_t kMaxBody = 4096;
constexpr auto kStreamWait = std::chrono::milliseconds(500);
constexpr int kKeepAliveEvery = 30;  // waits without news before a comment line
const char kTokenHeader[] = "X-Live-Token";

void SendJson(httplib::Response& res, int status, const std::string& body) {
    res.status = status;
    res.set_content(body, "application/json");
}

void SendError(httplib::Response& res, int status, const std::string& message) {
    SendJson(res, status, json{{"error", message}}.dump());
}

bool IsLoopbackName(const std::string& host) {
    if (host == "localhost") return true;
    in_addr v4{};
    if (inet_pton(AF_INET, host.c_str(), &v4) == 1) return (ntohl(v4.s_addr) >> 24) == 127;
    const std::string bare = host.size() > 2 && host.front() == '[' && host.back() == ']'
                                 ? host.substr(1, host.size() - 2)
                                 : host;
    in6_addr v6{};
    return inet_pton(AF_INET6, bare.c_str(), &v6) == 1 && IN6_IS_ADDR_LOOPBACK(&v6);
}

// "name:port" or "[v6]:port" without its port.
std::string HostWithoutPort(const std::string& host) {
    if (!host.empty() && host[0] == '[') {
        const size_t close = host.find(']');
        return close == std::string::npos ? host : host.substr(0, close + 1);
    }
    const size_t colon = host.rfind(':');
    return colon == std::string::npos ? host : host.substr(0, colon);
}

// Counts open event streams; released when the stream's response goes.
struct StreamSlot {
    explicit StreamSlot(std::atomic<int>& count) : Count(count) {}
    ~StreamSlot() { --Count; }
    std::atomic<int>& Count;
    uint64_t Version = 0;
    long long LastCycle = -1;
    int Quiet = 0;
};

}  // namespace

std::string MakeToken() {
    unsigned char bytes[16];
    size_t filled = 0;
    while (filled < sizeof bytes) {
        const ssize_t got = getrandom(bytes + filled, sizeof bytes - filled, 0);
        if (got <= 0) break;
        filled += size_t(got);
    }
    if (filled < sizeof bytes) {
        std::random_device device;
        for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(device());
    }
    static const char kHex[] = "0123456789abcdef";
    std::string token;
    for (unsigned char byte : bytes) {
        token += kHex[byte >> 4];
        token += kHex[byte & 15];
    }
    return token;
}

bool SameToken(const std::string& given, const std::string& expected) {
    unsigned char difference = given.size() == expected.size() ? 0 : 1;
    for (size_t i = 0; i < expected.size(); ++i)
        difference |= static_cast<unsigned char>(expected[i] ^ (i < given.size() ? given[i] : 0));
    return difference == 0;
}

struct LiveServer::Impl {
    const LiveOptions& Options;
    const ProgramInfo& Program;
    LiveEngine& Engine;
    const std::string Token;
    httplib::Server Server;
    std::atomic<int> Streams{0};
    std::atomic<bool> Stopping{false};
    int Port = -1;

    Impl(const LiveOptions& options, const ProgramInfo& program, LiveEngine& engine, std::string token)
        : Options(options), Program(program), Engine(engine), Token(std::move(token)) {}

    void Configure();
    httplib::Server::HandlerResponse CheckHost(const httplib::Request& req, httplib::Response& res) const;
    void ServeAsset(const httplib::Request& req, httplib::Response& res) const;
    void ServeEvents(httplib::Response& res);
    void HandleCommand(const httplib::Request& req, httplib::Response& res, CommandKind kind);
    bool ParseVariable(const httplib::Request& req, httplib::Response& res, CommandKind kind, Command& command) const;
};

void LiveServer::Impl::Configure() {
    Server.new_task_queue = [] { return new httplib::ThreadPool(kWorkers); };
    Server.set_payload_max_length(kMaxBody);
    Server.set_read_timeout(5, 0);
    Server.set_write_timeout(5, 0);
    Server.set_keep_alive_timeout(5);
    Server.set_keep_alive_max_count(1000);
    // The token travels in the page's address: keep it out of referrers, and
    // let the page run nothing but its own scripts.
    Server.set_default_headers({{"Referrer-Policy", "no-referrer"},
                                {"X-Content-Type-Options", "nosniff"},
                                {"X-Frame-Options", "DENY"},
                                {"Cache-Control", "no-store"},
                                {"Content-Security-Policy",
                                 "default-src 'self'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
                                 "connect-src 'self'; frame-ancestors 'none'"}});
    Server.set_pre_routing_handler(
        [this](const httplib::Request& req, httplib::Response& res) { return CheckHost(req, res); });
    Server.set_error_handler([](const httplib::Request&, httplib::Response& res) {
        if (res.body.empty()) SendError(res, res.status, res.status == 404 ? "not found" : "request refused");
    });

    Server.Get("/api/program", [this](const httplib::Request&, httplib::Response& res) {
        SendJson(res, 200, ProgramJson(Program, Engine.Trend().Capacity()));
    });
    Server.Get("/api/state", [this](const httplib::Request&, httplib::Response& res) {
        SendJson(res, 200, SnapshotJson(Program, *Engine.Board().Latest()));
    });
    Server.Get("/api/trend", [this](const httplib::Request&, httplib::Response& res) {
        SendJson(res, 200, TrendJson(Engine.Trend().Since(-1)));
    });
    Server.Get("/api/events", [this](const httplib::Request&, httplib::Response& res) { ServeEvents(res); });

    struct Route {
        const char* Path;
        CommandKind Kind;
    };
    static const Route kCommands[] = {
        {"/api/input", CommandKind::SetInput},   {"/api/force", CommandKind::Force},
        {"/api/release", CommandKind::Release},  {"/api/pause", CommandKind::Pause},
        {"/api/resume", CommandKind::Resume},    {"/api/step-cycle", CommandKind::StepCycle},
        {"/api/step-instruction", CommandKind::StepInstruction},
    };
    for (const Route& route : kCommands) {
        const CommandKind kind = route.Kind;
        Server.Post(route.Path, [this, kind](const httplib::Request& req, httplib::Response& res) {
            HandleCommand(req, res, kind);
        });
    }
    Server.Get(R"(/[A-Za-z0-9._-]*)",
               [this](const httplib::Request& req, httplib::Response& res) { ServeAsset(req, res); });
}

// A page on another site may make a browser send requests here; a name that
// resolves to this machine by rebinding reaches us with that name as Host.
// When serving on loopback, only loopback names are accepted.
httplib::Server::HandlerResponse LiveServer::Impl::CheckHost(const httplib::Request& req,
                                                            httplib::Response& res) const {
    if (!IsLoopbackName(Options.Address)) return httplib::Server::HandlerResponse::Unhandled;
    if (IsLoopbackName(HostWithoutPort(req.get_header_value("Host"))))
        return httplib::Server::HandlerResponse::Unhandled;
    SendError(res, 403, "this server answers only to a loopback host name");
    return httplib::Server::HandlerResponse::Handled;
}

void LiveServer::Impl::ServeAsset(const httplib::Request& req, httplib::Response& res) const {
    const Asset* asset = FindAsset(req.path == "/" ? "/index.html" : req.path);
    if (!asset) {
        SendError(res, 404, "not found");
        return;
    }
    res.set_content(reinterpret_cast<const char*>(asset->Data), asset->Size, asset->ContentType);
}

void LiveServer::Impl::ServeEvents(httplib::Response& res) {
    if (++Streams > kMaxStreams) {
        --Streams;
        SendError(res, 503, "too many event streams open");
        return;
    }
    auto slot = std::make_shared<StreamSlot>(Streams);
    res.set_header("X-Accel-Buffering", "no");
    res.set_chunked_content_provider("text/event-stream", [this, slot](size_t, httplib::DataSink& sink) {
        if (Stopping) return false;
        const auto snapshot = Engine.Board().WaitNewer(slot->Version, kStreamWait);
        if (Stopping) return false;
        if (snapshot->Version == slot->Version) {
            if (++slot->Quiet < kKeepAliveEvery) return true;
            slot->Quiet = 0;
            static const char kComment[] = ": still here\n\n";
            return sink.write(kComment, sizeof kComment - 1);
        }
        slot->Quiet = 0;
        slot->Version = snapshot->Version;
        const auto rows = Engine.Trend().Since(slot->LastCycle);
        if (!rows.empty()) slot->LastCycle = rows.back().Cycle;
        const std::string message = "event: update\ndata: {\"state\":" + SnapshotJson(Program, *snapshot) +
                                    ",\"trend\":" + TrendJson(rows) + "}\n\n";
        return sink.write(message.data(), message.size());
    });
}

// Reads {"name": ..., "value": ...} for the commands that name a variable.
bool LiveServer::Impl::ParseVariable(const httplib::Request& req, httplib::Response& res, CommandKind kind,
                                     Command& command) const {
    const json body = json::parse(req.body, nullptr, false);
    if (body.is_discarded() || !body.is_object()) {
        SendError(res, 400, "the body must be a JSON object");
        return false;
    }
    const auto name = body.find("name");
    if (name == body.end() || !name->is_string()) {
        SendError(res, 400, "\"name\" must be a variable's name");
        return false;
    }
    command.Variable = Program.Find(name->get<std::string>());
    if (command.Variable < 0) {
        SendError(res, 404, "the program has no variable '" + name->get<std::string>() + "'");
        return false;
    }
    const Variable& variable = Program.Variables[size_t(command.Variable)];
    if (kind == CommandKind::SetInput && variable.Kind != kKindVI) {
        SendError(res, 400, variable.Name + " is not an input (VI)");
        return false;
    }
    if (kind == CommandKind::Force && variable.Kind == kKindV) {
        SendError(res, 400, variable.Name + " is a V variable, reset at the start of every cycle: it cannot be forced");
        return false;
    }
    if (kind == CommandKind::Release) return true;
    const auto value = body.find("value");
    if (value != body.end() && value->is_boolean()) {
        command.Value = value->get<bool>() ? 1.0 : 0.0;
    } else if (value != body.end() && value->is_number()) {
        command.Value = value->get<double>();
    } else {
        SendError(res, 400, "\"value\" must be a number or true/false");
        return false;
    }
    if (!std::isfinite(command.Value)) {
        SendError(res, 400, "\"value\" must be finite");
        return false;
    }
    return true;
}

void LiveServer::Impl::HandleCommand(const httplib::Request& req, httplib::Response& res, CommandKind kind) {
    if (!SameToken(req.get_header_value(kTokenHeader), Token)) {
        SendError(res, 403, "a change needs the token printed when the runner started");
        return;
    }
    const RunState state = Engine.Board().Latest()->State;
    if (state == RunState::LoadFailed) {
        SendError(res, 409, "the program did not load");
        return;
    }
    const bool step = kind == CommandKind::StepCycle || kind == CommandKind::StepInstruction;
    if (step && state == RunState::Running) {
        SendError(res, 409, "pause before stepping");
        return;
    }
    Command command{kind};
    const bool named = kind == CommandKind::SetInput || kind == CommandKind::Force || kind == CommandKind::Release;
    if (named && !ParseVariable(req, res, kind, command)) return;
    const uint64_t sequence = Engine.Submit(command);
    SendJson(res, 200, json{{"sequence", sequence}}.dump());
}

LiveServer::LiveServer(const LiveOptions& options, const ProgramInfo& program, LiveEngine& engine, std::string token)
    : Impl_(std::make_unique<Impl>(options, program, engine, std::move(token))) {
    Impl_->Configure();
}

LiveServer::~LiveServer() = default;

int LiveServer::Bind() {
    Impl_->Port = Impl_->Options.Port == 0 ? Impl_->Server.bind_to_any_port(Impl_->Options.Address)
                                          : (Impl_->Server.bind_to_port(Impl_->Options.Address, Impl_->Options.Port)
                                                 ? Impl_->Options.Port
                                                 : -1);
    return Impl_->Port;
}

bool LiveServer::Listen() { return Impl_->Server.listen_after_bind(); }

void LiveServer::Stop() {
    Impl_->Stopping = true;
    Impl_->Server.stop();
}

}  // namespace qzlive
