// qzls: the language server for control programs, speaking the Language
// Server Protocol on standard input and output.
#include "framing.h"
#include "server.h"

#include <cstring>
#include <iostream>

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--version") == 0) {
            std::cout << "qzls " << QZLS_VERSION << "\n";
            return 0;
        }
        if (std::strcmp(argv[i], "--stdio") != 0) {
            std::cerr << "usage: qzls [--stdio | --version]\n"
                         "A language server on standard input and output; editors start it.\n";
            return 2;
        }
    }
    std::ios::sync_with_stdio(false);
    qzls::Server server([](const qzls::Json& message) {
        // Invalid UTF-8 from a document is replaced, never a reason to stop.
        qzls::WriteMessage(std::cout, message.dump(-1, ' ', false, qzls::Json::error_handler_t::replace));
    });
    while (!server.ExitRequested()) {
        const qzls::ReadResult read = qzls::ReadMessage(std::cin);
        if (read.Status == qzls::ReadStatus::EndOfInput) break;
        if (read.Status == qzls::ReadStatus::BadHeader) {
            std::cerr << "qzls: skipped a message with a bad header: " << read.Problem << "\n";
            continue;
        }
        server.HandleBody(read.Body);
    }
    return server.ExitCode();
}
