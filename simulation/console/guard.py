"""Who may ask for what: every request passes here first.

Anyone on this machine may look. Only the console's own page and programs that know the token may
change anything; another site's page in the same browser can neither look nor change.
"""

import hmac
import secrets

from aiohttp import web

from simulation.console.errors import BadRequest

TOKEN_HEADER = "X-Station-Token"
LARGEST_BODY = 65536

_HEADERS = {
    "Content-Security-Policy": "default-src 'self'; img-src 'self' blob:; frame-ancestors 'none'",
    "Cross-Origin-Resource-Policy": "same-origin",
    "Referrer-Policy": "no-referrer",
    "X-Content-Type-Options": "nosniff",
    "Cache-Control": "no-store",
}


class Guard:
    """Of a console at one port."""

    def __init__(self) -> None:
        self.token = secrets.token_urlsafe(24)
        self.port = 0  # known once it listens

    @property
    def hosts(self) -> tuple[str, str]:
        return f"127.0.0.1:{self.port}", f"localhost:{self.port}"

    def check(self, request: web.Request) -> None:
        """Raises BadRequest."""
        host = request.headers.get("Host", "")
        if host not in self.hosts:
            # A name of another site that leads here.
            raise BadRequest(f"This is {self.hosts[0]}, and not what the request asks for.", 421)
        if request.method in ("GET", "HEAD"):
            return
        origin = request.headers.get("Origin")
        site = request.headers.get("Sec-Fetch-Site")
        if origin not in (None, f"http://{host}") or site not in (None, "same-origin", "none"):
            raise BadRequest("A page of another origin may not change anything here.", 403)
        given = request.headers.get(TOKEN_HEADER, "").encode(errors="replace")
        if not hmac.compare_digest(given, self.token.encode()):
            raise BadRequest(
                f"The header {TOKEN_HEADER} does not hold this console's token, which is in the"
                " file that the station named when it started.",
                403,
            )
        if request.content_type != "application/json":
            raise BadRequest("The body has to be application/json.", 415)


def protect(response: web.StreamResponse) -> None:
    """No other site may frame it or read it, and it brings along nothing of another site."""
    for name, value in _HEADERS.items():
        response.headers[name] = value
