"""A broker on 127.0.0.1:1883 that takes every session and refuses every subscription."""

import socket
import threading


def length(stream):
    value = shift = 0
    while True:
        byte = stream.read(1)[0]
        value |= (byte & 0x7F) << shift
        if byte < 0x80:
            return value
        shift += 7


def serve(connection):
    stream = connection.makefile("rb")
    while first := stream.read(1):
        body = stream.read(length(stream))
        kind = first[0] >> 4
        if kind == 1:  # CONNECT
            connection.sendall(bytes([0x20, 3, 0, 0, 0]))
        elif kind == 8:  # SUBSCRIBE: reason 0x87, not authorised
            connection.sendall(bytes([0x90, 4]) + body[:2] + bytes([0, 0x87]))
        elif kind == 12:  # PINGREQ
            connection.sendall(bytes([0xD0, 0]))


listener = socket.create_server(("127.0.0.1", 1883))
print("ready", flush=True)
while True:
    accepted, _ = listener.accept()
    threading.Thread(target=serve, args=(accepted,), daemon=True).start()
