"""The simulated station: a private world in which the real service runs unchanged."""
