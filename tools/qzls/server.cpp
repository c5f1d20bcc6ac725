#include "server.h"

#include "format.h"

#include <iostream>

namespace qzls {
namespace {

// JSON-RPC and protocol error codes.
constexpr int kParseError = -32700;
constexpr int kInvalidRequest = -32600;
constexpr int kMethodNotFound = -32601;
constexpr int kInvalidParams = -32602;
constexpr int kInternalError = -32603;
constexpr int kServerNotInitialized = -32002;

// The protocol's TextDocumentSyncKind.Incremental.
constexpr int kSyncIncremental = 2;

Position PositionFrom(const Json& json) {
    return {json.at("line").get<int64_t>(), json.at("character").get<int64_t>()};
}

Encoding ChooseEncoding(const Json& params) {
    const auto general = params.find("capabilities");
    if (general == params.end() || !general->is_object()) return Encoding::Utf16;
    const Json offered = general->value("general", Json::object()).value("positionEncodings", Json::array());
    if (!offered.is_array()) return Encoding::Utf16;
    for (const Json& name : offered)
        if (name == "utf-8") return Encoding::Utf8;
    return Encoding::Utf16;
}

const char* EncodingName(Encoding encoding) {
    switch (encoding) {
    case Encoding::Utf8:
        return "utf-8";
    case Encoding::Utf32:
        return "utf-32";
    case Encoding::Utf16:
        break;
    }
    return "utf-16";
}

bool IsValidId(const Json& id) { return id.is_number_integer() || id.is_string(); }

}  // namespace

const Server::RequestRoute Server::kRequests[] = {
    {"initialize", &Server::Initialize},
    {"shutdown", &Server::Shutdown},
    {"textDocument/hover", &Server::HoverRequest},
    {"textDocument/definition", &Server::DefinitionRequest},
    {"textDocument/references", &Server::ReferencesRequest},
    {"textDocument/completion", &Server::CompletionRequest},
    {"textDocument/documentSymbol", &Server::SymbolsRequest},
    {"textDocument/formatting", &Server::FormattingRequest},
};

const Server::NotificationRoute Server::kNotifications[] = {
    {"initialized", &Server::Initialized},
    {"textDocument/didOpen", &Server::DidOpen},
    {"textDocument/didChange", &Server::DidChange},
    {"textDocument/didClose", &Server::DidClose},
};

void Server::HandleBody(const std::string& body) {
    const Json message = Json::parse(body, nullptr, false);
    if (message.is_discarded()) return SendError(nullptr, kParseError, "the message is not JSON");
    HandleMessage(message);
}

void Server::HandleMessage(const Json& message) {
    if (!message.is_object()) return SendError(nullptr, kInvalidRequest, "a message must be a JSON object");
    const auto method = message.find("method");
    const auto id = message.find("id");
    if (method == message.end()) {
        // A response to a request of ours; the server sends none, so there is
        // nothing to match it with. Anything else is no valid message.
        if (id != message.end() && (message.contains("result") || message.contains("error"))) return;
        return SendError(id != message.end() && IsValidId(*id) ? *id : Json(nullptr), kInvalidRequest,
                         "the message has no method");
    }
    if (!method->is_string()) return SendError(nullptr, kInvalidRequest, "the method is not a string");
    const Json params = message.value("params", Json(nullptr));
    if (id == message.end()) return HandleNotification(*method, params);
    if (!IsValidId(*id)) return SendError(nullptr, kInvalidRequest, "the id is neither a number nor a string");
    HandleRequest(*id, *method, params);
}

void Server::HandleRequest(const Json& id, const std::string& method, const Json& params) {
    if (ShutDown_) return SendError(id, kInvalidRequest, "the server has been shut down");
    if (!Initialized_ && method != "initialize") return SendError(id, kServerNotInitialized, "initialize first");
    if (Initialized_ && method == "initialize") return SendError(id, kInvalidRequest, "already initialized");
    for (const RequestRoute& route : kRequests) {
        if (method != route.Method) continue;
        try {
            const Json result = (this->*route.Handler)(params);
            Sink_({{"jsonrpc", "2.0"}, {"id", id}, {"result", result}});
        } catch (const nlohmann::json::exception& e) {
            SendError(id, kInvalidParams, std::string("invalid params: ") + e.what());
        } catch (const std::exception& e) {
            SendError(id, kInternalError, e.what());
        }
        return;
    }
    SendError(id, kMethodNotFound, "unknown method " + method);
}

void Server::HandleNotification(const std::string& method, const Json& params) {
    if (method == "exit") {
        Exit_ = true;
        return;
    }
    if (!Initialized_) return;  // the protocol drops notifications before initialize
    for (const NotificationRoute& route : kNotifications) {
        if (method != route.Method) continue;
        try {
            (this->*route.Handler)(params);
        } catch (const std::exception& e) {
            std::cerr << "qzls: " << method << ": " << e.what() << "\n";
        }
        return;
    }
    // Unknown notifications ("$/cancelRequest", "$/setTrace", ...) are ignored.
}

void Server::SendError(const Json& id, int code, const std::string& message) {
    Sink_({{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}});
}

void Server::Publish(const Document& document) {
    Sink_({{"jsonrpc", "2.0"},
           {"method", "textDocument/publishDiagnostics"},
           {"params", {{"uri", document.Uri}, {"version", document.Version}, {"diagnostics", Diagnostics(document, Encoding_)}}}});
}

Json Server::Initialize(const Json& params) {
    Encoding_ = params.is_object() ? ChooseEncoding(params) : Encoding::Utf16;
    Initialized_ = true;
    return {{"capabilities",
             {{"positionEncoding", EncodingName(Encoding_)},
              {"textDocumentSync", {{"openClose", true}, {"change", kSyncIncremental}}},
              {"hoverProvider", true},
              {"definitionProvider", true},
              {"referencesProvider", true},
              {"completionProvider", {{"triggerCharacters", {"@", "^"}}}},
              {"documentSymbolProvider", true},
              {"documentFormattingProvider", true}}},
            {"serverInfo", {{"name", "qzls"}, {"version", QZLS_VERSION}}}};
}

Json Server::Shutdown(const Json&) {
    ShutDown_ = true;
    return nullptr;
}

const Document* Server::DocumentOf(const Json& params) const {
    return Documents_.Find(params.at("textDocument").at("uri").get<std::string>());
}

Server::Target Server::TargetOf(const Json& params) const {
    const Position position = PositionFrom(params.at("position"));
    const Document* document = DocumentOf(params);
    return {document, document ? document->OffsetOf(position, Encoding_) : 0};
}

Json Server::HoverRequest(const Json& params) {
    const Target t = TargetOf(params);
    return t.Doc ? Hover(*t.Doc, t.Offset, Encoding_) : Json(nullptr);
}

Json Server::DefinitionRequest(const Json& params) {
    const Target t = TargetOf(params);
    return t.Doc ? Definition(*t.Doc, t.Offset, Encoding_) : Json(nullptr);
}

Json Server::ReferencesRequest(const Json& params) {
    const Target t = TargetOf(params);
    const bool withDeclaration = params.value("context", Json::object()).value("includeDeclaration", false);
    return t.Doc ? References(*t.Doc, t.Offset, withDeclaration, Encoding_) : Json(nullptr);
}

Json Server::CompletionRequest(const Json& params) {
    const Target t = TargetOf(params);
    return t.Doc ? Completion(*t.Doc, t.Offset, Encoding_) : Json(nullptr);
}

Json Server::SymbolsRequest(const Json& params) {
    const Document* document = DocumentOf(params);
    if (!document) return nullptr;
    return DocumentSymbols(*document, Encoding_);
}

Json Server::FormattingRequest(const Json& params) {
    const Document* document = DocumentOf(params);
    if (!document) return nullptr;
    return Formatting(*document, Encoding_);
}

void Server::Initialized(const Json&) {}

void Server::DidOpen(const Json& params) {
    const Json& item = params.at("textDocument");
    Publish(Documents_.Open(item.at("uri").get<std::string>(), item.at("version").get<int64_t>(),
                            item.at("text").get<std::string>()));
}

void Server::DidChange(const Json& params) {
    const Json& item = params.at("textDocument");
    std::vector<TextChange> changes;
    for (const Json& change : params.at("contentChanges")) {
        TextChange c;
        c.Text = change.at("text").get<std::string>();
        if (change.contains("range")) {
            c.Start = PositionFrom(change.at("range").at("start"));
            c.End = PositionFrom(change.at("range").at("end"));
        }
        changes.push_back(std::move(c));
    }
    if (const Document* document = Documents_.Change(item.at("uri").get<std::string>(), item.at("version").get<int64_t>(),
                                                     changes, Encoding_))
        Publish(*document);
}

void Server::DidClose(const Json& params) {
    const std::string uri = params.at("textDocument").at("uri").get<std::string>();
    Documents_.Close(uri);
    Sink_({{"jsonrpc", "2.0"},
           {"method", "textDocument/publishDiagnostics"},
           {"params", {{"uri", uri}, {"diagnostics", Json::array()}}}});
}

}  // namespace qzls
