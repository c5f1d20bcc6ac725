// The live view's web side: the page's assets, the read-only API, the event
// stream and the commands, each command checked against the run's token.
#ifndef QZRUN_LIVE_SERVER_H
#define QZRUN_LIVE_SERVER_H

#include "live_engine.h"

#include <memory>
#include <string>

namespace qzlive {

class LiveServer {
public:
    LiveServer(const LiveOptions& options, const ProgramInfo& program, LiveEngine& engine, std::string token);
    ~LiveServer();

    // Binds the listening socket; returns the port, or -1.
    int Bind();
    // Serves until Stop(); returns false when serving failed.
    bool Listen();
    void Stop();

private:
    struct Impl;
    std::unique_ptr<Impl> Impl_;
};

// 128 random bits as 32 hexadecimal digits.
std::string MakeToken();
// Compares in time independent of where the texts differ.
bool SameToken(const std::string& given, const std::string& expected);

}  // namespace qzlive

#endif
