"""The steps of scenarios. Given and When do something, Then checks that something is so, or waits for it.

A part in [brackets] may be left out. `ozuctl scenario steps` lists them; a project adds its own in its conftest.py.
"""

import difflib
import inspect
import itertools
import pathlib
import re

import parse
from pytest_bdd import given, parsers, then, when

from .build import program_folders
from .waiting import holds

SHORT = 0.5  # seconds for which a "not" must hold
LIMIT = 10.0  # seconds within which a Then must happen unless it says otherwise
SECONDS = {"second": 1, "minute": 60, "hour": 3600, "day": 86400}
PARTITIONS = ("FULL", "DAY", "NIGHT", "PERIMETER", "ANNEX", "24_HOURS", "SAFETY", "PANIC")
ARMED = "ARMED_2"
STEPS = []  # (kind, words, what it does, function)


@parse.with_pattern(r"\d+(?:\.\d+)? (?:second|minute|hour|day)s?")
def duration(text):
    number, unit = text.split()
    return float(number) * SECONDS[unit.rstrip("s")]


@parse.with_pattern("|".join(PARTITIONS))
def partition(text):
    return PARTITIONS.index(text)


@parse.with_pattern(r"[0-9A-Fa-f ]*")
def payload_bytes(text):
    return bytes.fromhex(text)


@parse.with_pattern(r'[^"]*')
def quoted(text):
    return text


# What the values in a step's words look like.
VALUES = {"Duration": "Duration: 5 seconds, 1.5 minutes, 1 hour, 2 days", "Partition": f"Partition: {', '.join(PARTITIONS)}",
          "Hex": "Hex: bytes, for example 00 or 01FF", "d": "d: a whole number", "g": "g: a number"}
TYPES = {"Quoted": quoted, "Duration": duration, "Partition": partition, "Hex": payload_bytes}


def action(*patterns):
    """A Given or When."""
    return lambda function: STEPS.extend(("Given, When", words, function.__doc__, function) for words in patterns) or function


def check(*patterns):
    """A Then."""
    return lambda function: STEPS.extend(("Then", words, function.__doc__, function) for words in patterns) or function


def variants(words):
    """A step's words with and without each part in brackets."""
    parts = re.split(r"\[(.*?)\]", words)
    for chosen in itertools.product((True, False), repeat=len(parts) // 2):
        yield "".join(part for index, part in enumerate(parts) if index % 2 == 0 or chosen[index // 2])


def without(function, names):
    """The function with these arguments None, and pytest-bdd does not look for them."""
    def wrapper(**arguments):
        return function(**dict.fromkeys(names), **arguments)

    signature = inspect.signature(function)
    wrapper.__signature__ = signature.replace(parameters=[p for p in signature.parameters.values() if p.name not in names])
    return wrapper


def pytest_bdd_step_func_lookup_error(request, step, exception):
    request.node._ozu_step = step
    near = nearest(step)
    values = "".join(f"\n{line}" for name, line in VALUES.items() if f":{name}}}" in near)
    exception.args = (f"there is no such step. The nearest is:  {near}{values}\n`ozuctl scenario steps` lists all",)


def nearest(step):
    """The words of the step of the same kind that is most alike; what is quoted, and values, do not count."""
    words = {re.sub(r"{.*?}", "", variant): words for kind, words, _, _ in STEPS for variant in variants(words)
             if (kind == "Then") == (step.type == "then")}
    return words[difflib.get_close_matches(re.sub(r'".*?"', '""', step.name), words, 1, 0)[0]]


# --- panel and processes ---


@action("a panel", 'a panel with the process "{program}"')
def a_panel(panel, program):
    """Boots a panel, and starts a process in it"""
    if program:
        panel.start(program)


@action('the process "{program}" is started[ with "{words}"]')
def start_process(panel, program, words):
    """Starts a process and waits until its start-up is done"""
    panel.start(program, *(words or "").split())


@action('the process "{program}" is killed')
def kill_process(panel, program):
    """Takes it away without a goodbye"""
    panel.process(program).kill()


@action('the process "{program}" is asked to end')
def end_process(panel, program):
    """SIGTERM"""
    panel.process(program).stop()


@action('the process "{program}" is stopped')
def stop_process(panel, program):
    """It stands still (SIGSTOP) until it is continued"""
    panel.faults.process_stopped(program)


@action('the process "{program}" is continued')
def continue_process(panel, program):
    """SIGCONT"""
    panel.process(program).resume()


@action('the process "{program}" is restarted')
def restart_process(panel, program):
    """Kills it and starts it again"""
    panel.process(program).restart()


@check('the process "{program}" runs')
def process_runs(panel, program):
    """It does, and stays so for a moment"""
    held(panel, lambda: panel.process(program).running, f'the process "{program}" to run',
         lambda: f"it has ended, saying {panel.process(program).output[-200:]!r}")


@check('the process "{program}" ends[ with {status:d}][ within {limit:Duration}]')
def process_ends(panel, program, status, limit):
    """It ends; with an exit status, negative for a signal"""
    found = panel.process(program).wait(limit or LIMIT)
    expect(panel, status is None or found == status, f'"{program}" to end with {status}', found)


@action('the command "{command}" is run')
def run_command(panel, command):
    """Runs a command of the panel's shell, which finds ozuctl and the programs under test"""
    folders = [pathlib.Path(panel.box.program("ozuctl")[-1]).parent, *program_folders()]
    script = f'PATH="{":".join(map(str, folders))}:$PATH"; {command}'
    panel.last_command = panel.box.run(["sh", "-c", script], env=panel.clock.environment())


@check("the command ends with {status:d}")
def command_ends(panel, status):
    """Exit status of the last command"""
    expect(panel, panel.last_command.returncode == status, f"the command to end with {status}", command_result(panel))


@check('the command prints "{words}"')
def command_prints(panel, words):
    """What the last command printed contains this"""
    expect(panel, words in panel.last_command.stdout, f'the command to print "{words}"', command_result(panel))


# --- arming ---


@action("partition {index:Partition} is armed")
def arm(panel, index):
    """Sets the partition's state"""
    panel.state.set(f"partitions[{index}].partitionState={ARMED}")


@action("partition {index:Partition} is disarmed")
def disarm(panel, index):
    """Sets the partition's state"""
    panel.state.set(f"partitions[{index}].partitionState=DISARMED")


@action("partition {index:Partition} is in alarm")
def put_in_alarm(panel, index):
    """Sets the partition's state"""
    panel.state.set(f"partitions[{index}].partitionState=ALARM")


@check("partition {index:Partition} is armed[ within {limit:Duration}]")
def is_armed(panel, index, limit):
    """One of the armed states"""
    state_is(panel, f"partitions[{index}].partitionState", ("ARMED_2", "ARMED_3", "ARMED_4"), limit)


@check("partition {index:Partition} is disarmed[ within {limit:Duration}]")
def is_disarmed(panel, index, limit):
    """The partition's state"""
    state_is(panel, f"partitions[{index}].partitionState", ("DISARMED",), limit)


@check("the arm type is {words}")
def arm_type(panel, words):
    """getCurArmType: FULL, DISARMED, NIGHT+PERIMETER, ..."""
    found = panel.ozuctl("ask", "getCurArmType", status=(0, 1)).stdout.split(maxsplit=1)[1].strip()
    expect(panel, found == words, f"the arm type {words}", found)


# --- devices, contacts, bypass ---


@action('a magnet contact "{name}" on device {index:d}[, bypassed for {time:Duration}]')
def magnet_contact(panel, name, index, time):
    """Enrols a magnet contact whose zone has the device's number"""
    panel.devices[name] = index
    panel.state.set(*(f"devices[{index}].{field}" for field in ("deviceType=W3", "active=1", "openState=0", f"tableIndex={index}")),
                    f"zones[{index}].firstInputEnabled=1", f"zones[{index}].bypass[0].bypassed=0", *bypass_fields(index, time))


@action('a device "{name}" of type {kind} on device {index:d}')
def device(panel, name, kind, index):
    """Enrols a device of any type, by its name or number"""
    panel.devices[name] = index
    panel.state.set(f"devices[{index}].deviceType={kind}", f"devices[{index}].active=1", f"devices[{index}].tableIndex={index}")


@action('the contact "{name}" opens')
def contact_opens(panel, name):
    """Sets the device's open state"""
    panel.state.set(f"devices[{number(panel, name)}].openState=1")


@action('the contact "{name}" closes')
def contact_closes(panel, name):
    """Sets the device's open state"""
    panel.state.set(f"devices[{number(panel, name)}].openState=0")


@action('"{name}" is bypassed[ for {time:Duration}]')
def bypass(panel, name, time):
    """Bypasses the device's zone, for a time or until further notice"""
    panel.state.set(*bypass_fields(number(panel, name), time or -1))


@action('"{name}" is no longer bypassed')
def end_bypass(panel, name):
    """Ends the bypass"""
    panel.state.set(f"zones[{number(panel, name)}].bypass[0].bypassed=0")


@check('"{name}" is bypassed')
def is_bypassed(panel, name):
    """ozuutils_isZoneBypassed"""
    answer(panel, "ozuutils_isZoneBypassed", True, number(panel, name), 0)


@check('"{name}" is not bypassed')
def is_not_bypassed(panel, name):
    """ozuutils_isZoneBypassed"""
    answer(panel, "ozuutils_isZoneBypassed", False, number(panel, name), 0)


@check('the contact "{name}" counts as open')
def is_open(panel, name):
    """IsMagnetOpen: open, in use and not bypassed"""
    answer(panel, "IsMagnetOpen", True, number(panel, name))


@check('the contact "{name}" does not count as open')
def is_not_open(panel, name):
    """IsMagnetOpen"""
    answer(panel, "IsMagnetOpen", False, number(panel, name))


# --- alarms and safety events ---


@check("the panel is in alarm[ within {limit:Duration}]")
def in_alarm(panel, limit):
    """IsPanelInAlarm"""
    panel.wait_until(lambda: panel.state.ask("IsPanelInAlarm"), limit or LIMIT, "the panel in alarm",
                     lambda: "it is not, " + panel.timeline.lines(1)[0])


@check("the panel is not in alarm")
def not_in_alarm(panel):
    """IsPanelInAlarm says no, and stays so for a moment"""
    held(panel, lambda: not panel.state.ask("IsPanelInAlarm"), "the panel not in alarm", lambda: "it is")


@action('"{name}" raises a safety event')
def safety_event(panel, name):
    """Enters it into the first slot of the safety events, with the device's type"""
    index = number(panel, name)
    panel.state.set(f"safetyEvents[0].deviceType={panel.state.get(f'devices[{index}].deviceType')}", "safetyEvents[0].rfId=1",
                    "safetyEvents[0].ended=0", "safetyEvents[0].startTime=now")


@action("the safety event ends")
def safety_event_ends(panel):
    """Marks the first slot as over"""
    panel.state.set("safetyEvents[0].ended=1")


@check("a safety event is in progress")
def safety_in_progress(panel):
    """ozuutils_isSafetyEventInProgress"""
    answer(panel, "ozuutils_isSafetyEventInProgress", True)


@check("no safety event is in progress")
def no_safety_in_progress(panel):
    """ozuutils_isSafetyEventInProgress"""
    answer(panel, "ozuutils_isSafetyEventInProgress", False)


@check("the safety siren sounds")
def siren_sounds(panel):
    """ozuutils_isSafetySirenInProgress; it begins a second after the event"""
    panel.wait_until(lambda: panel.state.ask("ozuutils_isSafetySirenInProgress"), LIMIT, "the safety siren to sound", lambda: "it is silent")


@check("the safety siren is silent")
def siren_is_silent(panel):
    """ozuutils_isSafetySirenInProgress"""
    answer(panel, "ozuutils_isSafetySirenInProgress", False)


# --- messages, log lines, events, fields ---


@action('the message [{payload:Hex} ]is sent to "{topic}"[ from "{label}"][ with class {klass:d} and command {command:d}]')
def send(panel, payload, topic, label, klass, command):
    """Publishes a message, the payload in hexadecimal. One for a process waits until a process listens"""
    if topic.startswith("Process/") and topic != "Process/ALL":
        panel.bus.wait_for_listener(topic)
    panel.bus.publish(topic, payload or b"", label or "TEST", klass, command)


@check('a message is sent to "{topic}"[ from "{label}"][ with class {klass:d} and command {command:d}][ within {limit:Duration}]')
def is_sent(panel, topic, label, klass, command, limit):
    """A message since the last When began; the topic may have wildcards"""
    panel.bus.wait_for(topic, label=label, message_class=klass, command=command, timeout=limit or LIMIT)


@check('no message is sent to "{topic}"')
def is_not_sent(panel, topic):
    """Since the last When began, and for a moment from now on"""
    panel.bus.never(topic, seconds=SHORT)


@check('the log line "{words}" is written[ by "{name}"][ within {limit:Duration}]')
def is_logged(panel, words, name, limit):
    """A log line since the last When began that contains this"""
    panel.log.wait_for(words, process=name, timeout=limit or LIMIT)


@check('no log line "{words}" is written')
def is_not_logged(panel, words):
    """Since the last When began, and for a moment from now on"""
    panel.log.never(words, seconds=SHORT)


@check('the event "{words}" is written[ by "{name}"][ within {limit:Duration}]')
def is_event(panel, words, name, limit):
    """A system event since the last When began that contains this"""
    panel.events.wait_for(words, process=name, timeout=limit or LIMIT)


@action('a process listens to "{topic}"')
def somebody_listens(panel, topic):
    """Waits until one has subscribed; before that it is still starting"""
    panel.bus.wait_for_listener(topic)


@action('the field "{field}" is set to "{value}"')
def set_field(panel, field, value):
    """Any field of the shared record, as in `ozuctl state set`"""
    panel.state.set(f"{field}={value}")


@check('the field "{field}" is "{value}"[ within {limit:Duration}]')
def field_is(panel, field, value, limit):
    """Any field of the shared record, as `ozuctl state get` says"""
    state_is(panel, field, (value,), limit)


# --- time, reboot ---


@action("{time:Duration} pass", "{time:Duration} passes")
def time_passes(panel, time):
    """The panel's processes see the time of day that much later at once"""
    panel.clock.advance(time)


@action('it is "{moment}"')
def it_is(panel, moment):
    """The panel's processes see this moment, in UTC: 2026-03-01T12:00:00"""
    panel.clock.set(moment)


@action("time runs {speed:g} times faster")
def time_runs(panel, speed):
    """Before the first process is started"""
    panel.clock.run_at(speed)


@action("the clock jumps forwards by {time:Duration}")
def jump_forwards(panel, time):
    """A wrong time of day, until the fault is over"""
    panel.faults.clock_jump(time)


@action("the clock jumps back by {time:Duration}")
def jump_back(panel, time):
    """A wrong time of day, until the fault is over"""
    panel.faults.clock_jump(-time)


@check("the panel reboots[ within {limit:Duration}]")
def reboots(panel, limit):
    """A reboot takes it down"""
    panel.wait_for_reboot(limit or LIMIT)


@action("the panel boots again")
def boots_again(panel):
    """After a reboot, with the processes that were started"""
    panel.boot()


@action("the power is cut")
def power_is_cut(panel):
    """Without a goodbye; the panel boots again with the processes that were started"""
    panel.power_cut()


@check("the panel has booted {times:d} times")
def has_booted(panel, times):
    """Boots so far"""
    expect(panel, panel.box.boots == times, f"{times} boots", panel.box.boots)


# --- faults ---


@action("the broker is killed")
def broker_killed(panel):
    """Its port is closed until the fault is over"""
    panel.faults.broker_killed()


@action("the broker is paused")
def broker_paused(panel):
    """Its port is open but silent"""
    panel.faults.broker_paused()


@action("the broker refuses")
def broker_refuses(panel):
    """It answers, but takes nobody"""
    panel.faults.broker_refusing()


@action("the broker is slow")
def broker_slow(panel):
    """It answers once a second"""
    panel.faults.broker_slow()


@action('the disk of "{folder}" is full')
def disk_full(panel, folder):
    """No room in this folder"""
    panel.faults.disk_full(folder)


@action('the disk of "{folder}" is read-only')
def disk_read_only(panel, folder):
    """Nothing in this folder can be opened for writing"""
    panel.faults.disk_read_only(folder)


@action("DNS is {behaviour}")
def dns_is(panel, behaviour):
    """honest, silent, lying, slow:SECONDS, truncated, refuse, unknown, closed"""
    panel.faults.dns(behaviour)


@action("the co-processor does not answer")
def coprocessor_silent(panel):
    """Processes that listen to Process/MDL stand still"""
    panel.faults.coprocessor_silent()


@action("the radio manager does not answer")
def radio_silent(panel):
    """Processes that listen to Process/RF_MANAGER stand still"""
    panel.faults.radio_silent()


@action('the modem has the firmware version "{version}"')
def modem_version(panel, version):
    """/var/run/version"""
    (panel.box.run_folder / "version").write_text(version + "\n")


@action("the modem does not answer")
def modem_silent(panel):
    """/var/run/version is not there"""
    panel.faults.modem_silent()


@action('the kernel command line is "{words}"')
def command_line(panel, words):
    """/proc/cmdline"""
    panel.faults.command_line(words)


@action("the fault is over", "the faults are over")
def faults_over(panel):
    """Undoes every fault, the last one first"""
    panel.faults.undo_all()


@check('DNS is asked for "{name}"[ within {limit:Duration}]')
def dns_is_asked(panel, name, limit):
    """The panel's DNS server got a query for the name"""
    panel.dns.wait_for_query(name, limit or LIMIT)


# --- what the steps share ---


def number(panel, name):
    """The index of a device with a name."""
    if name not in panel.devices:
        panel.fail(f'expected a device "{name}"; last seen: {sorted(panel.devices) or "none"}')
    return panel.devices[name]


def bypass_fields(index, time):
    """Assignments for a bypass of so many seconds; -1 has no end, None is no bypass."""
    if time is None:
        return []
    expiry = "never" if time < 0 else f"now+{time:.0f}"
    return [f"zones[{index}].bypass[0].bypassed=1", f"zones[{index}].bypass[0].bypassExpiry={expiry}"]


def command_result(panel):
    done = panel.last_command
    return f"{done.returncode}, {(done.stdout + done.stderr).strip()!r}"


def expect(panel, true, what, seen):
    if not true:
        panel.fail(f"expected {what}; last seen: {seen}")


def answer(panel, query, yes, *arguments):
    """A state query says yes, or no."""
    found = panel.state.ask(query, *arguments)
    expect(panel, bool(found) == yes, f"{query} to say {'yes' if yes else 'no'}", found)


def state_is(panel, field, values, limit):
    get = lambda: str(panel.state.get(field))
    panel.wait_until(lambda: get() in values, limit or LIMIT, f"{field} {' or '.join(values)}", get)


def held(panel, condition, what, seen):
    if not holds(condition, SHORT):
        panel.fail(f"expected {what}; last seen: {seen()}")


def pytest_bdd_before_step(request, step):
    """What Then looks for must have come since the first When of a row of them."""
    before = getattr(request.node, "_ozu_before", None)
    if step.type == "when" and before not in (None, "when"):
        request.getfixturevalue("panel").timeline.mark()
    request.node._ozu_before, request.node._ozu_step = step.type, step


# pytest-bdd keeps a step in the names of the module that makes it.
for _kind, _words, _, _function in STEPS:
    for _variant in variants(_words):
        _names = [name for name in inspect.signature(_function).parameters
                  if name != "panel" and not re.search(rf"{{{name}[:}}]", _variant)]
        _variant = re.sub(r'"{(\w+)}"', r'"{\1:Quoted}"', _variant)  # or one text would take two and what is between
        for _decorate in (then,) if _kind == "Then" else (given, when):
            _decorate(parsers.parse(_variant, TYPES))(without(_function, _names))
