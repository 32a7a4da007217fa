"""The panel's identity, from hardware addresses set on real interfaces; dialers, keyfobs, names, partitions."""

import pytest

from ozuctl import ask, coded, run


def add_interface(box, name, address, number, up=True):
    box.run(["ip", "link", "add", name, "address", address, "type", "veth", "peer", "name", f"p{number}"], check=True)
    # The kernel lists interfaces that have an IPv4 address.
    box.run(["ip", "addr", "add", f"192.0.2.{number}/32", "dev", name], check=True)
    if up:
        box.run(["ip", "link", "set", name, "up"], check=True)


@pytest.mark.long
def test_only_loopback(box):
    done = run(box, "identity", status=4)
    assert "calcConfigUniqueId" in done.stderr and "Cannot get valid HW address" in done.stderr


@pytest.mark.long
def test_hardware_address(box):
    add_interface(box, "eth0", "00:11:22:0a:0b:0c", 1)
    assert ask(box, "identity", "identity") == {"hexadecimal": "220a0b0c", "decimal": "10011012"}
    for third in (0, 5, 99, 100, 109, 205, 250, 255):
        box.run(["ip", "link", "set", "eth0", "down"], check=True)
        box.run(["ip", "link", "set", "eth0", "address", f"02:11:ff:{third:02x}:07:fe"], check=True)
        decimal = f"{third:02d}007254"[-8:]
        decimal = "1" + decimal[1:] if decimal[0] == "0" else decimal
        assert ask(box, "identity", "identity") == {"hexadecimal": f"ff{third:02x}07fe", "decimal": decimal}


@pytest.mark.long
def test_first_interface_in_the_kernels_order_even_when_down(box):
    add_interface(box, "wlan0", "02:00:00:01:02:03", 1, up=False)
    add_interface(box, "eth0", "02:00:00:04:05:06", 2)
    assert ask(box, "identity", "identity")["hexadecimal"] == "00010203"


@pytest.mark.long
def test_interface_counts_from_its_address_on(box):
    """Before DHCP there is no identity; another interface that gets its address first has its say."""
    add_interface(box, "eth0", "02:00:00:01:02:03", 1)
    add_interface(box, "wlan0", "02:00:00:04:05:06", 2)
    for name in ("eth0", "wlan0"):
        box.run(["ip", "addr", "flush", "dev", name], check=True)
    run(box, "identity", status=4)
    box.run(["ip", "addr", "add", "192.0.2.2/32", "dev", "wlan0"], check=True)
    assert ask(box, "identity", "identity")["hexadecimal"] == "00040506"
    box.run(["ip", "addr", "add", "192.0.2.1/32", "dev", "eth0"], check=True)
    assert ask(box, "identity", "identity")["hexadecimal"] == "00010203"


@pytest.mark.long
def test_many_interfaces(box):
    for number in range(1, 41):
        add_interface(box, f"eth{number}", f"02:00:00:00:00:{number:02x}", number, up=False)
    assert ask(box, "identity", "identity")["hexadecimal"] == "00000001"


@pytest.mark.long
def test_dialer(shared_box):
    run(shared_box, "state", "set", "dialers[4].dialerId=7", "dialers[4].dialerCheckA=11", "dialers[4].dialerCheckB=22")
    assert ask(shared_box, "dialer", "dialer", 7, 11, 22) == {"id": 7, "index": 4, "accepted": True}
    assert ask(shared_box, "dialer", "dialer", 7, 22, 11, status=1)["index"] is None
    assert "zero or not in range index: [17]" in run(shared_box, "dialer", 17, 0, 0, status=1).stderr
    assert "dialer id not found in Data base" in run(shared_box, "dialer", 16, 0, 0, status=1).stderr


def test_keyfob(shared_box):
    run(shared_box, "state", "set", "sy9Keyfobs[3].userId=42", "sy9Keyfobs[9].userId=42")
    assert ask(shared_box, "keyfob", "keyfob", 42) == {"user": 42, "keyfob": 3}
    assert ask(shared_box, "keyfob", "keyfob", 43, status=1) == {"user": 43, "keyfob": None}
    # User 0 owns what is not assigned.
    assert ask(shared_box, "keyfob", "keyfob", 0) == {"user": 0, "keyfob": 1}


def test_camera_profiles(shared_box):
    run(shared_box, "state", "set", "devices[5].deviceType=59", "devices[5].fwMajor=1", "devices[5].fwMinor=3",
        "devices[5].fwBuild=1")
    assert ask(shared_box, "profiles", "profiles", 5, status=1) == {"device": 5, "profiles": False}
    run(shared_box, "state", "set", "devices[5].fwBuild=2")
    assert ask(shared_box, "profiles", "profiles", 5) == {"device": 5, "profiles": True}
    ask(shared_box, "profiles", "profiles", 206, status=1)


@pytest.mark.long
def test_partitions(shared_box):
    assert len(ask(shared_box, "partition-list", "partition", "list")) == 9
    assert ask(shared_box, "partition-find", "partition", "find", "main", "partial2") == coded(2, "PARTITION_NIGHT")
    run(shared_box, "state", "set", *(f"partitions[{p}].partitionState=1" for p in range(8)))
    run(shared_box, "partition", "find", "main", status=1)
    run(shared_box, "state", "set", "partitions[1].partitionState=2", "partitions[2].disarmTime=1000000000")
    assert ask(shared_box, "partition-find", "partition", "find", "main") == coded(1, "PARTITION_DAY")
    assert ask(shared_box, "partition-disarmed", "partition", "disarmed", "main")["disarmed"] == "2001-09-09T01:46:40Z"
    refusal = run(shared_box, "partition", "find", "perimeter", "partial1", status=1).stderr
    assert "zone 'perimeter' has no partition for arm type 'partial1'" in refusal
    assert ask(shared_box, "partition-words", "partition", "words", 3)["zone"] == "perimeter"
    assert "bad partition id 4" in run(shared_box, "partition", "words", 4, status=1).stderr
    assert ask(shared_box, "partition-alarm-type", "partition", "alarm-type", "shock") == coded(7, "shock")
    assert "there is no alarm word 'none'" in run(shared_box, "partition", "alarm-type", "none", status=1).stderr


@pytest.mark.parametrize("words, answer", [
    (["device", "85"], coded(85, "W3")),
    (["device", "0x55"], coded(85, "W3")),
    (["tarn1", "254"], coded(254, "ENCRYPTED_MESSAGE")),
    (["tarn1old", "181"], coded(181, "8_BYTE_TAG_PRESENT")),
    (["tarn2", "244"], coded(244, "DEVICE_INFO_ACK")),
    (["tarnplus", "20", "3"], {"opcode": coded(20, "VOICE_EXTENDER"), "subOpcode": coded(3, "ACTION_STREAMING_SU")}),
    (["tarn1", "5", "12"], {"opcode": coded(5, "USER_INTERFACE"), "subOpcode": coded(12, "CLONED_TAG_UID")}),
], ids=lambda value: "-".join(value) if isinstance(value, list) else "")
def test_names(shared_box, words, answer):
    assert ask(shared_box, "names", "names", *words) == answer


@pytest.mark.long
def test_names_without_a_code_and_unknown_ones(shared_box):
    assert [len(ask(shared_box, "names", "names", table)) for table in ("device", "tarn1", "tarn1old", "tarn2", "tarnplus")] \
        == [66, 19, 86, 45, 22]
    ask(shared_box, "names", "names", "device", 11, status=1)
    ask(shared_box, "names", "names", "tarn1", 5, 200, status=1)
    run(shared_box, "names", "device", "x", status=2)


def test_device_type(shared_box):
    assert ask(shared_box, "device-type", "device-type", "TAG READER") == coded(37, "TAG READER")
    assert ask(shared_box, "device-type", "device-type", "UMK") == coded(38, "UMK")
    run(shared_box, "device-type", "tag reader", status=1)
