"""Why a handle could not do what it says."""


class HandleError(Exception):
    """The text is a sentence for people."""
