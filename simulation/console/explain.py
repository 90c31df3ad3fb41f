"""What a message means, in the words of gatewayctl decode."""

import subprocess

from simulation.console.messages import Message
from simulation.places import host_build_directory

_DEADLINE = 10.0


def explain(message: Message) -> str:
    tool = host_build_directory() / "tools" / "gatewayctl" / "gatewayctl"
    channel = ["--udp"] if message.is_datagram else []
    # It only reads the bytes: it opens no connection.
    result = subprocess.run(
        [tool, "decode", *channel, "--file", "-"],
        input=message.content,
        capture_output=True,
        timeout=_DEADLINE,
    )
    return (result.stdout or result.stderr).decode("utf-8", "backslashreplace")
