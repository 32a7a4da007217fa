"""Pipes and terminals, read from a test's end."""

import os


def drain(stream):
    """What arrives until the other end is closed; closes this one. A terminal hands things over piece by piece."""
    arrived = b""
    while True:
        try:
            piece = os.read(stream, 65536)
        except OSError:  # a terminal's way to tell its end
            break
        if not piece:
            break
        arrived += piece
    os.close(stream)
    return arrived
