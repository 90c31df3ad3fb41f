"""receiver.py PORT DOCUMENT LOG"""

import asyncio
import contextlib
import os
import sys
import time

DOCUMENT, LOG = sys.argv[2:]
TEXT = 6  # its position in a display alert


class Receiver(asyncio.Protocol):
    def connection_made(self, transport: asyncio.BaseTransport) -> None:
        self._transport = transport

    def data_received(self, message: bytes) -> None:
        self._transport.close()
        write_document(message[TEXT:].decode())


def write_document(text: str) -> None:
    now = int(time.time())
    document = (
        '[{"alert_type":"display_alert", "show_turnout_timer":"1", '
        f'"alert_time":"{now}", "turnout_end":"0", "turnout_zero":"0", "turnout_reverse":"0", '
        f'"alert_expiration":"{now + 120}", "alert_area":"{text}", "map_url":"", "units":[]}}]'
    )
    print("Writing JSON: " + document, flush=True)
    with open(DOCUMENT, "w") as file:
        file.write(document)
    with open(LOG, "a") as log:
        log.write(time.strftime("%y-%m-%d %T: ", time.localtime(now)) + document + "\n")
    with contextlib.suppress(FileNotFoundError):
        os.stat("/dev/shm/web_watchdog")


async def main() -> None:
    server = await asyncio.get_running_loop().create_server(Receiver, "0.0.0.0", int(sys.argv[1]))
    await server.serve_forever()


asyncio.run(main())
