"""Tests of panel processes with pytest: panels in boxes, faults, a clock, scenarios in plain text."""
