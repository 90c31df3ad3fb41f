#!/usr/bin/python3 -I
"""A kiosk browser with an old engine, QtWebKit, which is about the age of the board's.

    webkit_kiosk.py -u ADDRESS

It has no display. A program that looks at it connects to PORT, sends one request per line and gets
one answer per line, both JSON: {"evaluate": SCRIPT}, {"resize": [WIDTH, HEIGHT]}, {"picture": ""}
(a PNG in base64), {"pixel": [X, Y]} or {"complaints": ""} (the console's messages).
"""

import base64
import getopt
import json
import os
import sys
from typing import Any

from PyQt5.QtCore import QBuffer, QIODevice, QUrl
from PyQt5.QtNetwork import QHostAddress, QTcpServer, QTcpSocket
from PyQt5.QtWebKit import QWebSettings
from PyQt5.QtWebKitWidgets import QWebPage, QWebView
from PyQt5.QtWidgets import QApplication

PORT = 9333
SIZE = (1280, 720)
MEMORY = "/tmp/webkit-kiosk"  # what pages remember, across restarts


class Page(QWebPage):
    def __init__(self) -> None:
        super().__init__()
        self.complaints: list[str] = []

    def javaScriptConsoleMessage(self, message: str, line: int, source: str) -> None:
        self.complaints.append(f"{source}:{line}: {message}")


class Kiosk:
    def __init__(self, address: str) -> None:
        self.page = Page()
        self.view = QWebView()
        self.view.setPage(self.page)
        self.view.resize(*SIZE)
        self.view.show()
        self.view.load(QUrl(address))
        self.server = QTcpServer()
        self.server.newConnection.connect(self.accept)
        if not self.server.listen(QHostAddress.LocalHost, PORT):
            sys.exit(f"port {PORT}: {self.server.errorString()}")

    def accept(self) -> None:
        connection = self.server.nextPendingConnection()
        connection.readyRead.connect(lambda: self.answer_lines(connection))

    def answer_lines(self, connection: QTcpSocket) -> None:
        while connection.canReadLine():
            request = json.loads(bytes(connection.readLine()))
            connection.write(json.dumps(self.answer(request)).encode() + b"\n")

    def answer(self, request: dict[str, Any]) -> Any:
        ((action, value),) = request.items()
        return getattr(self, f"do_{action}")(value)

    def do_evaluate(self, script: str) -> Any:
        return self.page.mainFrame().evaluateJavaScript(script)

    def do_resize(self, size: list[int]) -> None:
        self.view.resize(*size)

    def do_complaints(self, _: str) -> list[str]:
        return self.page.complaints

    def do_pixel(self, place: list[float]) -> str:
        return str(self.view.grab().toImage().pixelColor(*map(int, place)).name())

    def do_picture(self, _: str) -> str:
        content = QBuffer()
        content.open(QIODevice.OpenModeFlag.WriteOnly)
        self.view.grab().save(content, "PNG")
        return base64.b64encode(bytes(content.data())).decode()


def main() -> None:
    options = dict(getopt.getopt(sys.argv[1:], "c:u:")[0])
    os.environ["QT_QPA_PLATFORM"] = "offscreen"
    application = QApplication(sys.argv[:1])
    QWebSettings.enablePersistentStorage(MEMORY)
    kiosk = Kiosk(options["-u"])
    sys.exit(application.exec_() if kiosk else 1)


if __name__ == "__main__":
    main()
