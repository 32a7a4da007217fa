"""Scripted DNS servers, all in one process in the box.

usage: dns_server.py LOG ADDRESS=BEHAVIOUR...

behaviours, each on port 53 of its address:
  cases:FILE     what BY_HOST in this Python file says for the name that is asked
  honest         one address record, 10.77.0.1; honest:ADDRESS another one
  lying          one address record, 10.66.6.6, where honest ones say 10.77.0.1
  several        two address records, 10.77.0.1 before 10.77.0.2
  slow:SECONDS   honest after that time
  silent         receives and says nothing
  refuse         the error REFUSED
  unknown        the error NXDOMAIN
  only:END       honest for names that end like this, the error NXDOMAIN for all others
  wrong-id       honest under another identifier
  elsewhere      honest from another port
  truncated      nothing but the mark that the answer is too long; honest over TCP
  closed         nobody listens, so the machine refuses

Every query is a JSON line in LOG: server, name, from, time, tcp. The line "ready" comes first.
"""

import json
import runpy
import socket
import struct
import sys
import threading
import time

from dnslib import A, DNSRecord, QTYPE, RCODE, RR

LOCK = threading.Lock()


class Server:
    def __init__(self, log, address, behaviour):
        self.log, self.address = log, address
        self.behaviour, _, self.argument = behaviour.partition(":")
        self.cases = runpy.run_path(self.argument)["BY_HOST"] if self.behaviour == "cases" else {}
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind((address, 53))
        if self.behaviour == "elsewhere":
            self.other = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            self.other.bind((address, 0))
        if self.behaviour == "truncated":
            self.tcp = socket.create_server((address, 53))
            threading.Thread(target=self.serve_tcp, daemon=True).start()

    def note(self, query, sender, tcp=False):
        with LOCK:
            self.log.write(json.dumps({"server": self.address, "name": asked_host(query),
                                       "from": sender[0], "time": time.monotonic(), "tcp": tcp}) + "\n")
            self.log.flush()

    def serve(self):
        while True:
            query, sender = self.socket.recvfrom(65536)
            self.note(query, sender)
            if self.behaviour == "slow":
                threading.Timer(float(self.argument), self.answer, (query, sender)).start()
            elif self.behaviour == "only":
                # Late enough that the asker is waiting again: each answer is an event of its own.
                threading.Timer(0.05, self.answer, (query, sender)).start()
            else:
                self.answer(query, sender)

    def serve_tcp(self):
        while True:
            connection, sender = self.tcp.accept()
            with connection:
                head = connection.recv(2, socket.MSG_WAITALL)
                if len(head) < 2:
                    continue  # given up before it was asked
                query = connection.recv(struct.unpack(">H", head)[0], socket.MSG_WAITALL)
                self.note(query, sender, tcp=True)
                reply = honest(query)
                connection.sendall(struct.pack(">H", len(reply)) + reply)

    def answer(self, query, sender):
        reply = self.reply(query)
        if reply is not None:
            (self.other if self.behaviour == "elsewhere" else self.socket).sendto(reply, sender)

    def reply(self, query):
        if self.behaviour == "silent":
            return None
        if self.behaviour == "cases":
            case = self.cases.get(asked_host(query))
            return case.build(query) if case else error(query, RCODE.NXDOMAIN)
        if self.behaviour in ("refuse", "unknown"):
            return error(query, RCODE.REFUSED if self.behaviour == "refuse" else RCODE.NXDOMAIN)
        if self.behaviour == "only" and not asked_host(query).endswith(self.argument):
            return error(query, RCODE.NXDOMAIN)
        if self.behaviour == "wrong-id":
            return bytes([query[0] ^ 0xFF, query[1]]) + honest(query)[2:]
        if self.behaviour == "truncated":
            record = DNSRecord.parse(query).reply()
            record.header.tc = 1
            return record.pack()
        if self.behaviour == "several":
            return honest(query, ("10.77.0.1", "10.77.0.2"))
        if self.behaviour == "lying":
            return honest(query, ("10.66.6.6",))
        return honest(query, (self.argument,) if self.behaviour == "honest" and self.argument else ("10.77.0.1",))


def asked_host(query):
    """The name asked for, as text; escapes hide nothing."""
    labels, offset = [], 12
    while offset < len(query) and query[offset]:
        labels.append(query[offset + 1:offset + 1 + query[offset]].decode("latin-1"))
        offset += 1 + query[offset]
    return ".".join(labels)


def honest(query, addresses=("10.77.0.1",)):
    record = DNSRecord.parse(query)
    reply = record.reply()
    for address in addresses if record.q.qtype == QTYPE.A else ():
        reply.add_answer(RR(record.q.qname, QTYPE.A, rdata=A(address), ttl=60))
    return reply.pack()


def error(query, code):
    reply = DNSRecord.parse(query).reply()
    reply.header.rcode = code
    return reply.pack()


def main():
    log = open(sys.argv[1], "w", encoding="utf-8")
    servers = [Server(log, *spec.split("=", 1)) for spec in sys.argv[2:] if not spec.endswith("=closed")]
    for server in servers:
        threading.Thread(target=server.serve, daemon=True).start()
    log.write('"ready"\n')
    log.flush()
    threading.Event().wait()


if __name__ == "__main__":
    main()
