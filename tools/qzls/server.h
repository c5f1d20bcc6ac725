// The JSON-RPC side of the server: the lifecycle (initialize, shutdown,
// exit), a table of request and notification handlers, and the errors the
// protocol prescribes for messages that are not what they should be.
#ifndef QZLS_SERVER_H
#define QZLS_SERVER_H

#include "documents.h"
#include "answers.h"

#include <functional>
#include <string>

namespace qzls {

class Server {
public:
    using Sink = std::function<void(const Json&)>;
    explicit Server(Sink sink) : Sink_(std::move(sink)) {}

    // One message body as it came off the wire.
    void HandleBody(const std::string& body);

    bool ExitRequested() const { return Exit_; }
    // 0 after a shutdown request, 1 when exit came without one.
    int ExitCode() const { return ShutDown_ ? 0 : 1; }

    using Request = Json (Server::*)(const Json& params);
    using Notification = void (Server::*)(const Json& params);

private:
    void HandleMessage(const Json& message);
    void HandleRequest(const Json& id, const std::string& method, const Json& params);
    void HandleNotification(const std::string& method, const Json& params);
    void SendError(const Json& id, int code, const std::string& message);
    void Publish(const Document& document);

    Json Initialize(const Json& params);
    Json Shutdown(const Json& params);
    Json HoverRequest(const Json& params);
    Json DefinitionRequest(const Json& params);
    Json ReferencesRequest(const Json& params);
    Json CompletionRequest(const Json& params);
    Json SymbolsRequest(const Json& params);
    Json FormattingRequest(const Json& params);
    void Initialized(const Json& params);
    void DidOpen(const Json& params);
    void DidChange(const Json& params);
    void DidClose(const Json& params);

    // The document a request names; null when it is not open.
    const Document* DocumentOf(const Json& params) const;
    // The document and offset a textDocument/position request points at.
    // The position is read first, so a malformed one is refused even for a
    // document that is not open.
    struct Target {
        const Document* Doc = nullptr;
        size_t Offset = 0;
    };
    Target TargetOf(const Json& params) const;

    struct RequestRoute {
        const char* Method;
        Request Handler;
    };
    struct NotificationRoute {
        const char* Method;
        Notification Handler;
    };
    static const RequestRoute kRequests[];
    static const NotificationRoute kNotifications[];

    Sink Sink_;
    DocumentStore Documents_;
    Encoding Encoding_ = Encoding::Utf16;
    bool Initialized_ = false;
    bool ShutDown_ = false;
    bool Exit_ = false;
};

}  // namespace qzls

#endif
