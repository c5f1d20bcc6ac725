"""The protocol as an editor meets it: the lifecycle, the negotiation of
position encodings, and the answers to messages that are not what they
should be."""
import unittest

from lsp_client import Client, frame

CAPABILITIES = {
    "completionProvider": {"triggerCharacters": ["@", "^"]},
    "definitionProvider": True,
    "documentFormattingProvider": True,
    "documentSymbolProvider": True,
    "hoverProvider": True,
    "referencesProvider": True,
    "textDocumentSync": {"change": 2, "openClose": True},
}


class Lifecycle(unittest.TestCase):
    def test_initialize_answers_capabilities_in_utf16_by_default(self):
        client = Client(self)
        answer = client.initialize()
        expected = dict(CAPABILITIES, positionEncoding="utf-16")
        self.assertEqual(answer, {"jsonrpc": "2.0", "id": 1, "result": {
            "capabilities": expected, "serverInfo": {"name": "qzls", "version": "1.0.0"}}})
        self.assertEqual(client.shutdown_and_exit(), 0)

    def test_utf8_is_chosen_when_the_client_offers_it(self):
        client = Client(self)
        answer = client.initialize(["utf-16", "utf-8"])
        self.assertEqual(answer["result"]["capabilities"]["positionEncoding"], "utf-8")
        self.assertEqual(client.shutdown_and_exit(), 0)

    def test_utf16_when_the_client_offers_neither_utf8_nor_utf16(self):
        client = Client(self)
        answer = client.initialize(["utf-32"])
        self.assertEqual(answer["result"]["capabilities"]["positionEncoding"], "utf-16")
        self.assertEqual(client.shutdown_and_exit(), 0)

    def test_requests_before_initialize_fail_and_notifications_are_dropped(self):
        client = Client(self)
        client.notify("textDocument/didOpen", {"textDocument": {
            "uri": "file:///early.qz", "languageId": "qz", "version": 1, "text": "PROG P VAR MAIN RET"}})
        answer = client.request("textDocument/documentSymbol", {"textDocument": {"uri": "file:///early.qz"}})
        self.assertEqual(answer, {"jsonrpc": "2.0", "id": 1,
                                  "error": {"code": -32002, "message": "initialize first"}})
        client.initialize()
        # The early didOpen was dropped: the document is not open.
        answer = client.request("textDocument/documentSymbol", {"textDocument": {"uri": "file:///early.qz"}})
        self.assertEqual(answer, {"jsonrpc": "2.0", "id": 3, "result": None})
        self.assertEqual(client.notifications, [])
        self.assertEqual(client.shutdown_and_exit(), 0)

    def test_a_second_initialize_is_refused(self):
        client = Client(self)
        client.initialize()
        answer = client.request("initialize", {"capabilities": {}})
        self.assertEqual(answer["error"], {"code": -32600, "message": "already initialized"})
        self.assertEqual(client.shutdown_and_exit(), 0)

    def test_after_shutdown_requests_fail_and_exit_ends_with_0(self):
        client = Client(self)
        client.initialize()
        self.assertEqual(client.request("shutdown"), {"jsonrpc": "2.0", "id": 2, "result": None})
        answer = client.request("textDocument/hover", {"textDocument": {"uri": "file:///a.qz"},
                                                       "position": {"line": 0, "character": 0}})
        self.assertEqual(answer["error"], {"code": -32600, "message": "the server has been shut down"})
        client.notify("exit")
        self.assertEqual(client.wait(), 0)

    def test_exit_without_shutdown_ends_with_1(self):
        client = Client(self)
        client.initialize()
        client.notify("exit")
        self.assertEqual(client.wait(), 1)

    def test_end_of_input_without_exit_ends_the_server(self):
        client = Client(self)
        client.initialize()
        self.assertEqual(client.wait(), 1)


class MalformedMessages(unittest.TestCase):
    def setUp(self):
        self.client = Client(self)
        self.client.initialize()

    def tearDown(self):
        # Tests that end the server themselves leave no client behind.
        if self.client is not None:
            self.assertEqual(self.client.shutdown_and_exit(), 0)

    def assertError(self, answer, request_id, code):
        self.assertEqual(answer["jsonrpc"], "2.0")
        self.assertEqual(answer["id"], request_id)
        self.assertEqual(answer["error"]["code"], code)
        self.assertNotIn("result", answer)

    def test_header_blocks_without_a_usable_length_are_skipped(self):
        self.client.send_raw(b"Content-Type: application/vscode-jsonrpc; charset=utf-8\r\n\r\n")
        self.client.send_raw(b"Content-Length: twelve\r\n\r\n")
        self.client.send_raw(b"Content-Length: -5\r\n\r\n")
        self.client.send_raw(b"no colon here\r\n\r\n")
        # A usable length with a garbled line beside it: the body is skipped
        # whole, and reading goes on behind it.
        body = b'{"jsonrpc": "2.0", "id": 77, "method": "shutdown"}'
        self.client.send_raw(b"Content-Length: %d\r\ngarbage\r\n\r\n" % len(body) + body)
        answer = self.client.request("shutdown")
        self.assertEqual(answer, {"jsonrpc": "2.0", "id": 2, "result": None})
        self.client.notify("exit")
        self.assertEqual(self.client.wait(), 0)
        self.assertEqual(self.client.stderr.count("qzls: skipped a message with a bad header"), 5)
        self.client = None

    def test_a_body_that_is_not_json_is_a_parse_error(self):
        self.client.send_raw(frame(b'{"jsonrpc": "2.0", "id": 7, "method": '))
        self.assertError(self.client.read_message(), None, -32700)

    def test_a_message_that_is_not_an_object_is_an_invalid_request(self):
        self.client.send_raw(frame(b"[1, 2, 3]"))
        self.assertError(self.client.read_message(), None, -32600)

    def test_a_request_without_a_method_is_an_invalid_request(self):
        self.client.send({"jsonrpc": "2.0", "id": 41})
        self.assertError(self.client.read_message(), 41, -32600)

    def test_a_method_that_is_not_a_string_is_an_invalid_request(self):
        self.client.send({"jsonrpc": "2.0", "id": 42, "method": 17})
        self.assertError(self.client.read_message(), None, -32600)

    def test_an_id_that_is_neither_number_nor_string_is_an_invalid_request(self):
        self.client.send({"jsonrpc": "2.0", "id": {"x": 1}, "method": "shutdown"})
        self.assertError(self.client.read_message(), None, -32600)

    def test_string_ids_are_answered_with_the_same_string(self):
        self.client.send({"jsonrpc": "2.0", "id": "abc", "method": "textDocument/documentSymbol",
                          "params": {"textDocument": {"uri": "file:///none.qz"}}})
        self.assertEqual(self.client.read_message(), {"jsonrpc": "2.0", "id": "abc", "result": None})

    def test_missing_params_fields_are_invalid_params(self):
        answer = self.client.request("textDocument/hover", {"textDocument": {"uri": "file:///a.qz"}})
        self.assertError(answer, 2, -32602)
        answer = self.client.request("textDocument/hover", {"position": {"line": 0, "character": 0}})
        self.assertError(answer, 3, -32602)
        answer = self.client.request("textDocument/definition", {"textDocument": {"uri": 5},
                                                                 "position": {"line": 0, "character": 0}})
        self.assertError(answer, 4, -32602)

    def test_a_notification_with_missing_fields_changes_nothing(self):
        self.client.notify("textDocument/didOpen", {"textDocument": {"uri": "file:///a.qz", "version": 1}})
        self.client.notify("textDocument/didChange", {"textDocument": {"uri": "file:///a.qz"}})
        answer = self.client.request("textDocument/documentSymbol", {"textDocument": {"uri": "file:///a.qz"}})
        self.assertEqual(answer, {"jsonrpc": "2.0", "id": 2, "result": None})
        self.assertEqual(self.client.notifications, [])

    def test_unknown_requests_are_method_not_found(self):
        answer = self.client.request("textDocument/rename", {})
        self.assertEqual(answer, {"jsonrpc": "2.0", "id": 2, "error": {
            "code": -32601, "message": "unknown method textDocument/rename"}})
        answer = self.client.request("$/somethingPrivate", {})
        self.assertError(answer, 3, -32601)

    def test_unknown_notifications_are_ignored(self):
        self.client.notify("$/cancelRequest", {"id": 1})
        self.client.notify("workspace/didChangeConfiguration", {"settings": {}})
        self.client.notify("$/setTrace", {"value": "off"})
        answer = self.client.request("shutdown")
        self.assertEqual(answer, {"jsonrpc": "2.0", "id": 2, "result": None})
        self.assertEqual(self.client.notifications, [])
        self.client.notify("exit")
        self.assertEqual(self.client.wait(), 0)
        self.client = None

    def test_responses_from_the_client_are_ignored(self):
        self.client.send({"jsonrpc": "2.0", "id": 99, "result": None})
        self.assertEqual(self.client.request("shutdown")["result"], None)
        self.client.notify("exit")
        self.assertEqual(self.client.wait(), 0)
        self.client = None


if __name__ == "__main__":
    unittest.main()
