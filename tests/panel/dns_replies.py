"""DNS replies as nobody should send them, and odd ones that are right all the same.

Each case answers the name it is called by, under the domain "case.test", with a message made from the query.
`expected` is the address that a client has to find, or None when the reply must be ignored; `malformed`
says whether it must be refused as a whole.
"""

import itertools
import random
import struct
from dataclasses import dataclass
from typing import Callable, Optional

QUESTION = 12  # where the question's name stands in a message
MORE = 6       # how much longer than a label's text a question is: class, type, terminator and length
A, NS, CNAME, SOA, PTR, MX, TXT, AAAA, DNAME, OPT = 1, 2, 5, 6, 12, 15, 16, 28, 39, 41
GOOD = "10.77.0.1"
OTHER = "10.77.0.2"


def u16(value):
    return struct.pack(">H", value & 0xFFFF)


def label(text):
    text = text if isinstance(text, bytes) else text.encode()
    return bytes([len(text)]) + text


def name(dotted):
    return b"".join(label(part) for part in dotted.split(".") if part) + b"\0"


def pointer(target):
    return u16(0xC000 | target)


OWNER = pointer(QUESTION)


def record(owner=OWNER, kind=A, data=None, length=None, ttl=60, cls=1):
    data = address(GOOD) if data is None else data
    return owner + u16(kind) + u16(cls) + struct.pack(">I", ttl) + u16(len(data) if length is None else length) + data


def address(text):
    return bytes(map(int, text.split(".")))


def question(query):
    """The question section of the query."""
    end = query.index(b"\0", QUESTION) + 5
    return query[QUESTION:end]


def message(query, records=b"", answers=0, authorities=0, additionals=0, flags=0x8180, questions=1):
    return (query[:2] + u16(flags) + u16(questions) + u16(answers) + u16(authorities) + u16(additionals)
            + question(query) + records)


def here(query):
    """The offset of the first record."""
    return QUESTION + len(question(query))


@dataclass
class Case:
    name: str
    build: Callable[[bytes], bytes]
    expected: Optional[str] = None
    malformed: bool = False

    @property
    def host(self):
        return f"{self.name}.case.test"


CASES = []


def good(case_name, build, expected=GOOD):
    CASES.append(Case(case_name, build, expected))


def bad(case_name, build):
    CASES.append(Case(case_name, build, None, malformed=True))


def nothing(case_name, build):
    CASES.append(Case(case_name, build))


def long_name(total):
    """A name of this many bytes on the wire, terminator included."""
    labels, left = b"", total - 1
    while left > 64:
        labels, left = labels + label("n" * 63), left - 64
    if left == 64:
        labels, left = labels + label("n" * 30), left - 31
    return labels + label("n" * (left - 1)) + b"\0"


# --- right, though odd ------------------------------------------------------------------------------------------

good("plain", lambda q: message(q, record(), 1))
good("owner-in-full", lambda q: message(q, record(question(q)[:-4]), 1))
good("other-owner", lambda q: message(q, record(name("somebody.else")), 1))
good("root-owner", lambda q: message(q, record(b"\0"), 1))
good("alias", lambda q: message(q, record(kind=CNAME, data=name("b.test")) + record(name("b.test")), 2))
good("alias-by-pointer", lambda q: message(q, record(kind=CNAME, data=label("b") + OWNER)
                                           + record(pointer(here(q) + 12)), 2))
good("alias-to-root", lambda q: message(q, record(kind=CNAME, data=b"\0") + record(), 2))
good("alias-chain", lambda q: message(q, b"".join(record(kind=CNAME, data=name(f"c{i}.test")) for i in range(8))
                                      + record(), 9))
good("last-wins", lambda q: message(q, record(data=address(OTHER)) + record(), 2))
good("dname", lambda q: message(q, record(kind=DNAME, data=name("d.test")) + record(), 2))
good("pointer-name", lambda q: message(q, record(kind=PTR, data=name("p.test")) + record(), 2))
good("ns-in-answer", lambda q: message(q, record(kind=NS, data=name("ns.test")) + record(), 2))
good("address6-first", lambda q: message(q, record(kind=AAAA, data=bytes(16)) + record(), 2))
good("address6-last", lambda q: message(q, record() + record(kind=AAAA, data=b"\xff" * 16), 2))
good("opt-in-additional", lambda q: message(q, record() + record(b"\0", OPT, b"", cls=1232), 1, 0, 1))
good("opt-with-cookie", lambda q: message(q, record() + record(b"\0", OPT, b"\0\x0a\0\x08" + b"\xc0" * 8, cls=4096),
                                          1, 0, 1))
good("opt-in-answer", lambda q: message(q, record(b"\0", OPT, b"") + record(), 2))
good("text-first", lambda q: message(q, record(kind=TXT, data=label("\x00\xff")) + record(), 2))
good("mail-first", lambda q: message(q, record(kind=MX, data=u16(10) + label("mx") + OWNER) + record(), 2))
good("start-of-authority", lambda q: message(
    q, record() + record(kind=SOA, data=name("a.test") + name("b.test") + bytes(20)), 1, 1))
good("soa-with-forward-pointer", lambda q: message(
    q, record() + record(kind=SOA, data=pointer(0x3FFF) + name("b.test") + bytes(20)), 1, 1))
good("signature", lambda q: message(q, record() + record(kind=46, data=b"\xc0" * 60), 2))
good("unknown-type", lambda q: message(q, record(kind=65280, data=b"\xc0\xff\x00") + record(), 2))
good("empty-data", lambda q: message(q, record(kind=10, data=b"") + record(), 2))
good("delegation", lambda q: message(
    q, record() + record(name("test"), NS, label("ns") + name("test")) + record(name("ns.test"), data=address(OTHER)),
    1, 1, 1))
good("address-in-authority", lambda q: message(q, record() + record(data=address(OTHER)), 1, 1))
for size in range(4):
    good(f"address-of-{size}-in-authority", lambda q, n=size: message(q, record() + record(data=b"\x05" * n), 1, 1))
good("text-that-points-into-the-header", lambda q: message(q, record() + record(kind=TXT, data=pointer(4)), 2))
good("address-in-additional", lambda q: message(q, record() + record(data=address(OTHER)), 1, 0, 1))
good("other-class", lambda q: message(q, record(cls=3), 1))
good("wrong-identifier", lambda q: u16(struct.unpack(">H", q[:2])[0] ^ 0xFFFF) + message(q, record(), 1)[2:])
good("query-flags", lambda q: message(q, record(), 1, flags=0x0100))
good("truncated-flag", lambda q: message(q, record(), 1, flags=0x8380))
good("error-with-answer", lambda q: message(q, record(), 1, flags=0x8183))
good("authoritative", lambda q: message(q, record(), 1, flags=0x8580))
good("no-questions-announced", lambda q: message(q, record(), 1, questions=0))
good("many-questions-announced", lambda q: message(q, record(), 1, questions=65535))
good("bytes-behind-the-end", lambda q: message(q, record() + b"\xc0" * 400, 1))
good("long-address-data", lambda q: message(q, record(data=address(GOOD) + bytes(12)), 1))
good("address-data-of-1023", lambda q: message(q, record(data=address(GOOD) + bytes(1019)), 1))
good("address-data-of-1024", lambda q: message(q, record(data=address(GOOD) + b"x" * 1020), 1))
good("address-data-of-60000", lambda q: message(q, record(data=address(GOOD) + b"x" * 59996), 1))
good("alias-with-padding", lambda q: message(q, record(kind=CNAME, data=name("b.test") + b"xyz") + record(), 2))
good("high-bytes-in-label", lambda q: message(q, record(label(b"\xc3\xa9t\xc3\xa9") + b"\0"), 1))
good("pointer-bytes-in-label", lambda q: message(q, record(label(b"\xff\xff\xff") + b"\0"), 1))
good("zero-byte-in-label", lambda q: message(q, record(label(b"a\0b") + b"\0"), 1))
good("dot-in-label", lambda q: message(q, record(label(b"a.b") + b"\0"), 1))
good("control-bytes-in-name", lambda q: message(q, record(kind=CNAME, data=label("\x1b[2J\n%s%n") + b"\0")
                                                + record(), 2))
good("label-of-63", lambda q: message(q, record(label("l" * 63) + b"\0"), 1))
good("chain-of-7000-pointers", lambda q: message(
    q, record() + record(kind=TXT, data=b"\0" + b"".join(
        pointer(here(q) + 28 + (0 if i == 0 else 1 + 2 * (i - 1))) for i in range(7000)))
    + record(pointer(here(q) + 28 + 1 + 2 * 6999)), 3))
good("name-of-255", lambda q: message(q, record(long_name(255)), 1))
good("alias-of-255", lambda q: message(q, record(kind=CNAME, data=long_name(255)) + record(), 2))
good("127-labels", lambda q: message(q, record(label("x") * 127 + b"\0"), 1))
good("pointer-to-a-pointer", lambda q: message(q, record() + record(pointer(here(q))), 2))
good("pointer-into-a-label", lambda q: message(q, record(label("xx\x01y\x00") + b"\0") + record(pointer(here(q) + 3)),
                                               2))
good("pointer-to-root", lambda q: message(q, record(b"\0") + record(pointer(here(q))), 2))
good("twenty-answers", lambda q: message(q, record(data=address(OTHER)) * 19 + record(), 20))
good("twenty-one-answers", lambda q: message(q, record(data=address(OTHER)) * 19 + record()
                                             + record(data=address(OTHER)), 21))
good("thousand-answers", lambda q: message(q, record() * 1000, 1000))
good("as-many-as-fit", lambda q: message(q, record() * 4000, 4000))
good("forty-of-each", lambda q: message(q, record() * 120, 40, 40, 40))
good("sixty-authorities", lambda q: message(q, record() + record(kind=NS, data=OWNER) * 60, 1, 60))
good("sixty-additionals", lambda q: message(q, record() + record(kind=AAAA, data=bytes(16)) * 60, 1, 0, 60))
for count in (2, 5, 19):
    good(f"{count}-other-types-around", lambda q, n=count: message(
        q, record(kind=AAAA, data=bytes(16)) * n + record() + record(kind=TXT, data=label("t")) * n, 2 * n + 1))

# --- nothing found ----------------------------------------------------------------------------------------------

nothing("no-answers", lambda q: message(q))
nothing("no-such-name", lambda q: message(q, flags=0x8183))
nothing("server-failure", lambda q: message(q, flags=0x8182))
nothing("refused", lambda q: message(q, flags=0x8185))
nothing("header-only", lambda q: q[:2] + u16(0x8181) + bytes(8))
nothing("only-address6", lambda q: message(q, record(kind=AAAA, data=bytes(16)), 1))
nothing("only-alias", lambda q: message(q, record(kind=CNAME, data=name("b.test")), 1))
nothing("only-additional", lambda q: message(q, record(), 0, 0, 1))
nothing("only-authority", lambda q: message(q, record(), 0, 1))
nothing("address-after-twenty", lambda q: message(q, record(kind=TXT, data=label("t")) * 20 + record(), 21))

# --- wrong ------------------------------------------------------------------------------------------------------

for length in range(12):
    bad(f"datagram-of-{length}", lambda q, n=length: message(q, record(), 1)[:n])
# A whole reply with something of everything, cut at every byte behind its header.
ALL = (lambda q: message(q, record(kind=CNAME, data=label("b") + OWNER) + record()
                         + record(kind=NS, data=name("ns.test")) + record(b"\0", OPT, b"1234"), 2, 1, 1))
for cut in range(1, 70):
    bad(f"cut-by-{cut}", lambda q, n=cut: ALL(q)[:-n])
for kind_name, kind in (("a", A), ("ns", NS), ("cname", CNAME), ("ptr", PTR), ("dname", DNAME), ("aaaa", AAAA),
                        ("opt", OPT), ("unknown", 999)):
    bad(f"{kind_name}-announces-more", lambda q, k=kind: message(q, record() + record(kind=k, data=b"\1a\0\0",
                                                                                   length=5), 2))
    bad(f"{kind_name}-announces-65535", lambda q, k=kind: message(q, record() + record(kind=k, data=b"\1a\0\0",
                                                                                    length=65535), 2))
for size in range(4):
    bad(f"address-of-{size}", lambda q, n=size: message(q, record() + record(data=b"\x0a" * n), 2))
    bad(f"additional-address-of-{size}", lambda q, n=size: message(q, record() + record(data=b"\x0a" * n), 1, 0, 1))
# Names that lead astray, as owner and as data of each kind of record that has one.
ASTRAY = {
    "self-loop": lambda at: pointer(at),
    "forward": lambda at: pointer(at + 2) + name("x"),
    "outside": lambda at: pointer(0x3FFF),
    "header": lambda at: pointer(QUESTION - 1),
    "header-start": lambda at: label("x") + pointer(0),
    "two-loop": lambda at: label("x") + pointer(at),
    "long-label-loop": lambda at: label("x" * 63) + pointer(at),
    "unending": lambda at: label("x" * 200),
    "256-bytes": lambda at: long_name(192) [:-1] + label("y" * 64) + b"\0",
    "300-bytes": lambda at: label("z" * 50) * 6 + b"\0",
    "128-labels": lambda at: label("z") * 128 + b"\0",
    "1000-labels": lambda at: label("z") * 1000 + b"\0",
    "60000-bytes": lambda at: label("z" * 63) * 930 + b"\0",
}
for case_name, build_name in ASTRAY.items():
    bad(f"owner-{case_name}", lambda q, b=build_name: message(q, record() + record(b(here(q) + 16)), 2))
    for kind_name, kind in (("cname", CNAME), ("ptr", PTR), ("dname", DNAME), ("ns", NS)):
        bad(f"{kind_name}-{case_name}", lambda q, b=build_name, k=kind: message(
            q, record() + record(kind=k, data=b(here(q) + 28)), 2))
    bad(f"authority-{case_name}", lambda q, b=build_name: message(
        q, record() + record(kind=NS, data=b(here(q) + 28)), 1, 1))
    bad(f"additional-{case_name}", lambda q, b=build_name: message(q, record() + record(b(here(q) + 16)), 1, 0, 1))
bad("half-a-pointer", lambda q: message(q, record() + b"\xc0", 2))
bad("half-a-pointer-in-data", lambda q: message(q, record() + record(kind=CNAME, data=b"\xc0"), 2))
bad("pointers-at-each-other", lambda q: message(
    q, record(kind=TXT, data=pointer(here(q) + 14) + pointer(here(q) + 12)) + record(pointer(here(q) + 14)), 2))
for section, counts in {"answers": (2, 0, 0), "authorities": (1, 1, 0), "additionals": (1, 0, 1),
                        "all": (65535, 65535, 65535)}.items():
    bad(f"missing-{section}", lambda q, c=counts: message(q, record(), *c))
bad("header-behind-the-twentieth", lambda q: message(q, record() * 20 + record(pointer(0)), 21))
for count in (21, 256, 65535):
    bad(f"announces-{count}", lambda q, n=count: message(q, record() * 20, n))
bad("astray-behind-the-twentieth", lambda q: message(q, record() * 20 + record(pointer(0x3FFF)), 21))
bad("short-address-behind-the-twentieth", lambda q: message(q, record() * 20 + record(data=b"123"), 21))


def scrambled(seed):
    """Random bytes behind a header that announces records."""

    def build(query):
        rng = random.Random(seed)
        return message(query, bytes(rng.choice((0, 1, 0xC0, 0xFF, rng.randrange(256))) for _ in range(300)), 0)[:6] \
            + u16(40) + u16(40) + u16(40) + question(query) + bytes(rng.choice((0xC0, 0xFF, 63)) for _ in range(200))

    return build


for number in range(20):
    bad(f"noise-{number}", scrambled(number))

BY_HOST = {case.host: case for case in CASES}
assert len(BY_HOST) == len(CASES)


def hostile():
    return [case for case in CASES if case.malformed]


def harmless():
    return [case for case in CASES if not case.malformed]


def asked_host(query):
    """The name that a query asks for."""
    labels, position = [], QUESTION
    while query[position]:
        labels.append(query[position + 1:position + 1 + query[position]])
        position += 1 + query[position]
    return b".".join(labels).decode("latin-1")


if __name__ == "__main__":
    query = u16(1) + u16(0x0100) + u16(1) + bytes(6) + name("plain.case.test") + u16(1) + u16(1)
    for case in itertools.chain(CASES):
        case.build(query)
    print(f"{len(hostile())} hostile, {len(harmless())} harmless")
