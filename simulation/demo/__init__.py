"""What ./scripts/station plays and shows: an incident in a simulated station."""
