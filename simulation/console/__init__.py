"""A console for a running station: a page for this machine's browser, HTTP, and commands."""
