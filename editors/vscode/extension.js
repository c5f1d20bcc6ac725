// Starts qzls for *.qz files. The server does the work: diagnostics from
// the checker, hover, definitions, references, completion, symbols and
// formatting; this file only tells the editor how to start it.
const vscode = require("vscode");
const { LanguageClient } = require("vscode-languageclient/node");

let client;

function activate(context) {
  const command = vscode.workspace.getConfiguration("qz").get("server.path", "qzls");
  client = new LanguageClient(
    "qzls",
    "QZ control programs",
    { command, args: ["--stdio"] },
    { documentSelector: [{ scheme: "file", language: "qz" }, { scheme: "untitled", language: "qz" }] }
  );
  context.subscriptions.push({ dispose: () => client && client.stop() });
  return client.start();
}

function deactivate() {
  return client ? client.stop() : undefined;
}

module.exports = { activate, deactivate };
