"""Tests of the two programs for the terminal."""
