"""GDB support for libkel_utils: pretty-printers for its types, and the commands

    kel queues   every queue of the process: what it holds, what it holds back, who waits
    kel aging    the queues whose wake-ups are held back, in order of expiry
    kel locks    the threads that wait for a semaphore, and who owns it

It reads memory only and calls nothing in the process, so it works on core files as well. GDB loads it by itself for the
installed library; otherwise: source kel_utils-gdb.py
"""
import ipaddress
import re
import struct

import gdb
import gdb.printing

WORD = 32
SHOWN = 64  # elements of a long sequence


# Memory ---------------------------------------------------------------------------------------------------------------

def read(address, count):
    return bytes(gdb.selected_inferior().read_memory(int(address), count)) if count else b""


def number(address, form):
    return struct.unpack("<" + form, read(address, struct.calcsize(form)))[0]


def numbers(pointer, count):
    """The `count` 32-bit words behind a pointer."""
    return struct.unpack("<%dI" % count, read(pointer, 4 * count)) if count and int(pointer) else ()


def text_of(data):
    return "".join(chr(c) if 32 <= c < 127 else "." for c in data)


def typed(address, name):
    return gdb.Value(int(address)).cast(gdb.lookup_type(name).pointer())


def global_value(name):
    try:
        return gdb.parse_and_eval(name)
    except gdb.error:
        return None


def shortened(parts):
    return ", ".join(parts[:SHOWN]) + (", ..." if len(parts) > SHOWN else "")


# Semaphores -----------------------------------------------------------------------------------------------------------

KINDS = {0: "mutual exclusion", 1: "binary", 2: "counting"}


def mutex_state(mutex):
    """(times taken, thread id of the owner) of a glibc mutex; the owner is 0 when it is free."""
    return number(mutex + 4, "I"), number(mutex + 8, "i")


def count_state(count):
    """(count, waiting threads) of a glibc semaphore on a 64-bit machine."""
    both = number(count, "Q")
    return both & 0xFFFFFFFF, both >> 32


def thread_name(tid):
    for thread in gdb.selected_inferior().threads():
        if thread.ptid[1] == tid:
            return "thread %d (LWP %d)" % (thread.num, tid)
    return "LWP %d" % tid


def semaphore_state(sem):
    kind, impl = int(sem["kind"]), int(sem["impl"])
    if kind not in KINDS:
        return "damaged: kind %d" % kind
    if impl == 0:
        return KINDS[kind] + ", without a lock"
    try:
        if kind == 0:
            times, owner = mutex_state(impl)
            return "mutual exclusion, " + (
                "free" if owner == 0 else
                "held by %s%s" % (thread_name(owner), "" if times == 1 else ", %d times" % times))
        count, waiting = count_state(impl)
        return "%s, count %d%s" % (KINDS[kind], count, ", %d waiting" % waiting if waiting else "")
    except gdb.MemoryError:
        return KINDS[kind] + ", deleted"


class Semaphore:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return semaphore_state(self.value)


class SemaphoreHandle:
    """A SEM_ID."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        address = int(self.value)
        if address == 0:
            return "0x0"
        try:
            return "0x%x %s" % (address, semaphore_state(self.value.dereference()))
        except gdb.MemoryError:
            return "0x%x" % address


# Bit masks, matrices --------------------------------------------------------------------------------------------------

def bits_of(words):
    """Positions of the set bits; bit 0 is the most significant of the first word."""
    return [WORD * index + bit for index, word in enumerate(words) if word
            for bit in range(WORD) if word & 0x80000000 >> bit]


def ranges(positions):
    """1, 3-5, 9"""
    runs = []
    for position in positions:
        if runs and position == runs[-1][1] + 1:
            runs[-1][1] = position
        else:
            runs.append([position, position])
    return shortened([str(first) if first == last else "%d-%d" % (first, last) for first, last in runs])


def mask_words(mask):
    return numbers(mask["maskPtr"], int(mask["numWords"]))


class BitMask:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        if int(self.value["signature"]) != 0xA5:
            return "bit mask, destroyed"
        size = WORD * int(self.value["numWords"]) - int(self.value["tailBits"])
        return "%d bits {%s}" % (size, ranges(bits_of(mask_words(self.value))))


class BitMatrix:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        if int(self.value["signature"]) != 0x5A:
            return "bit matrix, destroyed"
        return "%d rows of %d bits" % (int(self.value["numRows"]), int(self.value["numColumns"]))

    def children(self):
        if int(self.value["signature"]) != 0x5A or not int(self.value["maskPtr"]):
            return
        words = int(self.value["wordsPerRow"])
        for row in range(int(self.value["numRows"])):
            yield "[%d]" % row, "{%s}" % ranges(bits_of(numbers(int(self.value["maskPtr"]) + 4 * words * row, words)))


# Addresses, value types -----------------------------------------------------------------------------------------------

def address_text(value):
    family = int(value["family"])
    if family == 2:
        return str(ipaddress.IPv4Address(struct.pack("<I", int(value["ipv4OrFlowInfo"]))))
    if family == 10:
        scope = int(value["scopeId"])
        octets = bytes(int(value["ipv6"][i]) for i in range(16))
        return str(ipaddress.IPv6Address(octets)) + ("%%%d" % scope if scope else "")
    return "empty" if family == 0 else "family %d" % family


class IpAddress:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return address_text(self.value)


class IpHostname:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        kind, name = int(self.value["hostType"]), self.value["name"].string()
        if kind == 1:
            return 'DNS name "%s"' % name
        if kind == 2:
            return 'address %s, written "%s"' % (address_text(self.value["address"]), name)
        return "empty"


def octets_of(value):
    length = max(0, int(value["os"]["len"]))
    return read(value["os"]["ptr"], length) if int(value["os"]["ptr"]) else b""


class OctetString:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        data = octets_of(self.value)
        return "%d octets: %s |%s|" % (len(data), data[:SHOWN].hex(" "), text_of(data[:SHOWN]))


class Oid:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        ids = numbers(self.value["oid"]["ptr"], max(0, int(self.value["oid"]["len"])))
        return ".".join(str(i) for i in ids) if ids else "empty"


class NamedBits:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        data = octets_of(self.value)
        return "{%s}" % ranges([i for i in range(8 * len(data)) if data[i // 8] & 0x80 >> i % 8])


class DateAndTime:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        data = octets_of(self.value)
        if len(data) < 8:
            return "empty"
        date = "%d-%d-%d,%d:%d:%d.%d" % (struct.unpack(">HBBBBBB", data[:8]))
        return date + (",%c%d:%d" % tuple(data[8:11]) if len(data) >= 11 else "")


# Delta lists, pool, port map ------------------------------------------------------------------------------------------

class DeltaList:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        name = self.value["name"].string() if int(self.value["name"]) else ""
        return 'delta list "%s", %d entries, the last due in %d%s' % (
            name, int(self.value["numEntries"]), int(self.value["totalTime"]),
            ", astable" if self.value["astable"] else "")

    def children(self):
        entry, due = self.value["head"], 0
        for index in range(int(self.value["numEntries"])):
            if not int(entry):
                return
            due += int(entry["time"])
            yield "due in %d" % due, entry
            entry = entry["next"]


class Pool:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        error = int(self.value["flagError"])
        return "pool, %d of %d blocks of %d bytes free%s" % (
            int(self.value["freeCount"]), int(self.value["blockCount"]), int(self.value["blockSize"]),
            ", construction failed (0x%x)" % error if error else "")


class PortMap:
    """A pointer to the map: the map itself is larger than what GDB prints by default."""

    def __init__(self, value):
        self.value = value

    def bound(self):
        return [p for p in bits_of(mask_words(self.value["usedSystemPort"])) if p]

    def to_string(self):
        if not int(self.value):
            return "0x0"
        return "0x%x port map, %d ports" % (int(self.value), len(self.bound()))

    def children(self):
        if not int(self.value):
            return
        for port in self.bound()[:SHOWN]:
            yield "[%d]" % port, "port instance 0x%08x" % int(self.value["portRecords"][port]["portInst"])


# Queues ---------------------------------------------------------------------------------------------------------------

WIDTHS = {"SMultiEventQ8": "B", "SMultiEventQ16": "H", "SMultiEventQ32": "I"}
QUEUE_CLASSES = list(WIDTHS) + ["SMultiEventQ", "SMsgQueueX"]


def slots_in_use(queue):
    """The ring's filled slots, the oldest first."""
    size, slot, end = (int(queue[f]) for f in ("queueSize", "pRead", "pWrite"))
    slots = []
    while size > 0 and not int(queue["empty"]) and len(slots) < size:
        slots.append(slot)
        slot = slot + 1 if slot + 1 < size else 0
        if slot == end:
            break
    return slots


def held_back(queue):
    gives = int(queue["delayedGives"])
    if queue["expired"]:
        return ", being delivered"
    return ", %d gives held back" % gives if queue["aging"] else ""


def waiting(sem):
    waiters = count_state(int(sem["impl"]))[1] if int(sem) and int(sem["impl"]) else 0
    return ", %d waiting" % waiters if waiters else ""


def event_text(queue, event, form):
    data = " = %d" % number(int(queue["dataPtr"]) + struct.calcsize(form) * event, form) if form else ""
    changed = event in bits_of(mask_words(queue["multiUse"]))
    return "%d%s%s" % (event, data, " (changed)" if changed else "")


def multi_event_text(queue, class_name):
    form = WIDTHS.get(class_name)
    events = [number(int(queue["queuePtr"]) + 2 * slot, "H") for slot in slots_in_use(queue)]
    return "multi-event queue %d, %d of %d pending%s%s {%s}" % (
        int(queue["queueId"]), len(events), int(queue["queueSize"]), held_back(queue), waiting(queue["cflag"]),
        shortened([event_text(queue, event, form) for event in events]))


def msg_queue_x_text(queue):
    return "message queue %d, %d of %d messages%s%s%s" % (
        int(queue["queueId"]), len(slots_in_use(queue)), int(queue["queueSize"]), held_back(queue),
        waiting(queue["cflag"]),
        ", senders blocked" if queue["txBlocking"] else "")


def queue_text(queue):
    class_name = queue.type.name
    return msg_queue_x_text(queue) if class_name == "SMsgQueueX" else multi_event_text(queue, class_name)


class Queue:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return queue_text(self.value)


class BaseQueue:
    """A queue seen through its base class: printed as what it is."""

    def __init__(self, value):
        self.value = value

    def to_string(self):
        actual = self.value.dynamic_type
        if actual.name in QUEUE_CLASSES:
            return queue_text(self.value.cast(actual))
        return "base queue %d%s" % (int(self.value["queueId"]), held_back(self.value))


class FixedQueue:
    def __init__(self, value):
        self.value = value

    def to_string(self):
        return "fixed message queue, %d of %d messages of up to %d bytes" % tuple(
            int(self.value[f]) for f in ("num_requests", "max_size_queue", "max_data_len"))


PRINTERS = {
    "mutex_sem": Semaphore, "SBaseQ": BaseQueue, "SMultiEventQ": BaseQueue, "SMultiEventQ8": Queue,
    "SMultiEventQ16": Queue, "SMultiEventQ32": Queue, "SMsgQueueX": Queue, "msg_q": FixedQueue,
    "CDeltaList": DeltaList, "vxFixedSizeMemPool": Pool, "CBitMask": BitMask, "CBitMatrix": BitMatrix,
    "CIpAddress": IpAddress, "CIpHostname": IpHostname, "SuOctetString": OctetString, "SuOID": Oid,
    "SuBITS": NamedBits, "SuDateAndTime": DateAndTime,
}
POINTER_PRINTERS = {"mutex_sem": SemaphoreHandle, "kelSysPortUtil": PortMap}


class Printers(gdb.printing.PrettyPrinter):
    def __init__(self):
        super().__init__("kel_utils", [gdb.printing.SubPrettyPrinter(name) for name in sorted(PRINTERS)])

    def __call__(self, value):
        type_ = value.type.strip_typedefs()
        if type_.code == gdb.TYPE_CODE_PTR:
            printer = POINTER_PRINTERS.get(type_.target().strip_typedefs().unqualified().name)
        else:
            printer = PRINTERS.get(type_.unqualified().name)
        return printer(value) if printer else None


# Finding what a process holds -----------------------------------------------------------------------------------------

def writable_regions():
    """(start, bytes) of the memory in which objects may live: of a process from its mappings, of a core its segments."""
    try:
        text = gdb.execute("info proc mappings", to_string=True)
        found = re.findall(r"^\s*(0x[0-9a-f]+)\s+(0x[0-9a-f]+)\s+0x[0-9a-f]+\s+0x[0-9a-f]+\s+rw\S*\s*(\S*)", text, re.M)
        regions = [(int(a, 16), int(b, 16)) for a, b, name in found if name in ("", "[heap]") or name.startswith("/")]
    except gdb.error:
        regions = []
    if not regions:
        text = gdb.execute("maintenance info sections", to_string=True)
        regions = [(int(a, 16), int(b, 16)) for a, b, rest in
                   re.findall(r"(0x[0-9a-f]+)->(0x[0-9a-f]+) at 0x[0-9a-f]+: (load\S* .*)", text)
                   if "READONLY" not in rest]
    return [(start, end - start) for start, end in regions]


def vtable_of(class_name):
    """What the first word of an object of this class is, or None."""
    try:
        return int(gdb.parse_and_eval("(long)&'vtable for %s'" % class_name)) + 16
    except gdb.error:
        return None


def objects_of(class_name, regions):
    vtable = vtable_of(class_name)
    if vtable is None:
        return
    pattern = struct.pack("<Q", vtable)
    inferior = gdb.selected_inferior()
    for start, count in regions:
        end = start + count
        while start < end:
            try:
                at = inferior.search_memory(start, end - start, pattern)
            except gdb.MemoryError:
                break
            if at is None:
                break
            start = at + 8
            if at % 8 == 0:
                yield typed(at, class_name).dereference()


MARKS = {"SMsgQueueX": 0xFD0550DF}
MULTI_EVENT_MARK = 0xFD0330DF


def all_queues():
    """Every event and message queue, found by its vtable and its type mark, by queue number."""
    regions, queues = writable_regions(), {}
    for class_name in QUEUE_CLASSES:
        for queue in objects_of(class_name, regions):
            try:
                if int(queue["magic"]) == MARKS.get(class_name, MULTI_EVENT_MARK):
                    queues[int(queue["queueId"])] = queue
            except gdb.MemoryError:
                pass
    return [queues[number_] for number_ in sorted(queues)]


def names_of_globals(type_name):
    """{address that a global pointer of this type holds: name of the variable}"""
    names = {}
    for spelling in (type_name, "struct mutex_sem \\*" if type_name == "SEM_ID" else type_name):
        try:
            text = gdb.execute("info variables -q -n -t %s" % spelling, to_string=True)
        except gdb.error:
            continue
        for name in re.findall(r"([\w:]+)(?:\[\d+\])?;$", text, re.M):
            value = global_value(name)
            if value is not None and value.type.strip_typedefs().code == gdb.TYPE_CODE_PTR and int(value):
                names.setdefault(int(value), name)
    return names


# Who waits ------------------------------------------------------------------------------------------------------------

def frames():
    frame, depth = gdb.newest_frame(), 0
    while frame is not None and frame.is_valid() and depth < 40:
        yield frame
        try:
            frame = frame.older()
        except gdb.error:
            return
        depth += 1


def argument(frame, name):
    try:
        value = frame.read_var(name)
        return None if value.is_optimized_out else value
    except (ValueError, gdb.error):
        return None


# The functions that wait in the POSIX call; semTake() leaves waits with a limit to the last.
TAKES = ("semTake", "semTake(mutex_sem*, unsigned int)", "(anonymous namespace)::takeWithin",
         "(anonymous namespace)::takeWithin(mutex_sem*, unsigned int)")


def waiting_for():
    """The SEM_ID that the selected thread waits for, and the function of the client that waits; or (None, None)."""
    sem, caller = None, None
    for frame in frames():
        if frame.name() in TAKES:
            sem = argument(frame, "sem") if sem is None else sem
        elif sem is not None and caller is None:
            caller = frame.name()
    return sem, caller


class Kel(gdb.Command):
    """What libkel_utils holds in this process: kel queues, kel aging, kel locks."""

    def __init__(self):
        super().__init__("kel", gdb.COMMAND_DATA, prefix=True)


class KelQueues(gdb.Command):
    """kel queues: every event and message queue, with what it holds and who waits."""

    def __init__(self):
        super().__init__("kel queues", gdb.COMMAND_DATA)

    def invoke(self, argument_, from_tty):
        queues = all_queues()
        for queue in queues:
            print("0x%x %s" % (int(queue.address), queue_text(queue)))
        for address, name in sorted(names_of_globals("MSG_Q_ID").items()):
            print("0x%x %s %s" % (address, name, FixedQueue(typed(address, "msg_q").dereference()).to_string()))
        print("%d queues" % len(queues))


class KelAging(gdb.Command):
    """kel aging: the queues that hold wake-ups back, in order of expiry, in ticks of 10 ms."""

    def __init__(self):
        super().__init__("kel aging", gdb.COMMAND_DATA)

    def invoke(self, argument_, from_tty):
        queue = gdb.parse_and_eval("SBaseQ::head")
        due, shown = 0, 0
        while int(queue) and shown < 10000:
            due += int(queue["ageTtl"])
            print("due %d ticks after tick %d: 0x%x %s" % (
                due, int(gdb.parse_and_eval("SBaseQ::sleepStart")) & 0xFFFFFFFF, int(queue),
                BaseQueue(queue.dereference()).to_string()))
            queue = queue["ageNext"]
            shown += 1
        print("%d queues age" % shown)


class KelLocks(gdb.Command):
    """kel locks: each thread that waits for a semaphore, with its owner or count. Mutual waits are named."""

    def __init__(self):
        super().__init__("kel locks", gdb.COMMAND_DATA)

    def invoke(self, argument_, from_tty):
        selected = gdb.selected_thread()
        names, owners, waiters = names_of_globals("SEM_ID"), {}, 0
        try:
            for thread in sorted(gdb.selected_inferior().threads(), key=lambda t: t.num):
                thread.switch()
                sem, caller = waiting_for()
                if sem is None:
                    continue
                waiters += 1
                print("%s in %s waits for %s: %s" % (
                    thread_name(thread.ptid[1]), caller or "?", names.get(int(sem), "0x%x" % int(sem)),
                    semaphore_state(sem.dereference())))
                if int(sem["kind"]) == 0 and int(sem["impl"]):
                    owners[thread.ptid[1]] = mutex_state(int(sem["impl"]))[1]
        finally:
            if selected is not None:
                selected.switch()
        self.print_cycle(owners)
        print("%d threads wait" % waiters)

    @staticmethod
    def print_cycle(owners):
        for start in sorted(owners):
            chain = [start]
            while owners.get(chain[-1]) and owners[chain[-1]] not in chain:
                chain.append(owners[chain[-1]])
            if len(chain) > 1 and owners.get(chain[-1]) == start:
                print("deadlock: " + " -> ".join(thread_name(tid) for tid in chain + [start]))
                return


gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers(), replace=True)
Kel()
KelQueues()
KelAging()
KelLocks()
