#include "live_view.h"

#include "../input_file.h"
#include "../stimulus.h"
#include "live_engine.h"
#include "live_server.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace qzlive {

namespace {

constexpr int kExitOk = 0;
constexpr int kExitUsage = 2;

// Releases the interpreter however the run ends.
struct InterpreterHandle {
    qz_st_interpretator::IQZSTInterpretator* Object = Create();
    ~InterpreterHandle() { Object->Destroy(); }
};

std::string UrlHost(const std::string& address) {
    return address.find(':') != std::string::npos ? "[" + address + "]" : address;
}

void ReportLoadError(const ProgramInfo& program) {
    const ErrorInfo& error = *program.LoadError;
    if (error.Code)
        std::fprintf(stderr, "%s:%d:%d: error %u: %s\n", program.Source.Path().c_str(), error.Line, error.Column,
                     error.Code, error.Message.c_str());
    else
        std::fprintf(stderr, "%s:%d:%d: error: %s\n", program.Source.Path().c_str(), error.Line, error.Column,
                     error.Message.c_str());
}

// SIGINT and SIGTERM are taken by one thread that stops the run, so that no
// other thread is ever interrupted inside a lock.
sigset_t StopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

}  // namespace

bool ParseServeAddress(const std::string& text, LiveOptions& options, std::string& error) {
    std::string address = options.Address;
    std::string port = text;
    if (!text.empty() && text[0] == '[') {
        const size_t close = text.find("]:");
        if (close == std::string::npos) {
            error = "--serve needs [ADDRESS]:PORT for an IPv6 address, not '" + text + "'";
            return false;
        }
        address = text.substr(1, close - 1);
        port = text.substr(close + 2);
    } else if (const size_t colon = text.rfind(':'); colon != std::string::npos) {
        address = text.substr(0, colon);
        port = text.substr(colon + 1);
    }
    if (address.empty() || port.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos ||
        std::atoi(port.c_str()) > 65535) {
        error = "--serve needs [ADDRESS:]PORT with a port from 0 to 65535, not '" + text + "'";
        return false;
    }
    options.Address = address;
    options.Port = std::atoi(port.c_str());
    return true;
}

int RunLiveView(const LiveOptions& options) {
    std::string bytes;
    std::string error;
    if (!qzrun::ReadInputFile(options.ProgramPath, options.MaxFileBytes, bytes, error)) {
        std::fprintf(stderr, "qzrun: error: %s\n", error.c_str());
        return kExitUsage;
    }
    qzrun::Stimulus stimulus;
    if (!options.InputsPath.empty() &&
        !qzrun::ReadStimulus(options.InputsPath, options.MaxFileBytes, stimulus, error)) {
        std::fprintf(stderr, "qzrun: error: %s\n", error.c_str());
        return kExitUsage;
    }

    InterpreterHandle interpreter;
    ProgramInfo program(qzrun::SourceText(options.ProgramPath, std::move(bytes)));
    LoadProgram(program, interpreter.Object);
    if (program.LoadError) ReportLoadError(program);

    const sigset_t signals = StopSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // inherited by every thread started below

    LiveEngine engine(options, program, interpreter.Object, options.InputsPath.empty() ? nullptr : &stimulus);
    const std::string token = MakeToken();
    LiveServer server(options, program, engine, token);
    const int port = server.Bind();
    if (port < 0) {
        std::fprintf(stderr, "qzrun: error: cannot listen on %s:%d\n", options.Address.c_str(), options.Port);
        return kExitUsage;
    }
    std::printf("qzrun: live view of %s at http://%s:%d/?token=%s\n", options.ProgramPath.c_str(),
                UrlHost(options.Address).c_str(), port, token.c_str());
    std::fflush(stdout);

    std::atomic<bool> webDone{false};
    std::thread web([&] {
        if (!server.Listen()) engine.Stop();
        webDone = true;
    });
    std::thread stopper([&] {
        int signal = 0;
        sigwait(&signals, &signal);
        engine.Stop();
    });
    engine.Run();
    // A signal can end the run before the web thread has begun listening,
    // and a stop asked for then is lost: ask until the web thread returns.
    while (!webDone) {
        server.Stop();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    web.join();
    // The stopper waits for a signal that may never come when serving
    // failed: send it one.
    pthread_kill(stopper.native_handle(), SIGTERM);
    stopper.join();
    return kExitOk;
}

}  // namespace qzlive
