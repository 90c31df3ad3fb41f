"""The scenarios that come along: ./scripts/station run NAME."""
