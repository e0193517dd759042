"""Tests of the packages and of what they install."""
