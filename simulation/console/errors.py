"""What is wrong with a request."""


class BadRequest(Exception):
    """The text is a sentence for people, and the status one of HTTP's."""

    def __init__(self, text: str, status: int = 400) -> None:
        super().__init__(text)
        self.status = status
