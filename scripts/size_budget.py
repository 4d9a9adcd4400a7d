#!/usr/bin/env python3
"""Flash, static RAM and worst-case stack of the chip image, against its budget.

Run after every link (cmake/tm4c123.cmake), or by hand:
  scripts/size_budget.py --elf build/arm/fenwa.elf \
      --objdir build/arm/CMakeFiles/fenwa.dir --budget [--verbose]

Flash is every loaded section (vectors, text, rodata, the initial values of
.data); static RAM is every section placed in the part's SRAM (data, bss, the
C-library arena and the stack reserve). The budget: flash <= 224 KiB, static
RAM <= 30 KiB, stack worst case <= the size of the .stack section.

The stack figure walks the call graph GCC writes with -fcallgraph-info=su (a
.ci file per object: a node per function with its frame, an edge per direct
call, indirect calls as edges to __indirect_call):

  worst case = deepest path from ResetISR (start-up, then main)
             + deepest interrupt handler (one priority: handlers never nest)
             + the exception frame: 26 words (Cortex-M4F with lazy FP stacking
               reserves the FP part whenever the interrupted code used the
               FPU) and 1 word of alignment, 108 bytes

Rules, all meant to err on the large side:
- The C library and libgcc have no frame sizes: LIBRARY charges each entry
  point the deepest chain of its own internal calls. A callee in neither the
  graph nor the table counts 0 and is named in the report (marked ?).
- An indirect call in a function that takes function pointers goes to any
  function of the same return and parameter types whose address is taken in
  data (tables, initialised pointers), in that function or in a caller above
  it. Any other indirect call (command tables, constructors) is charged the
  deepest address-taken function that is not already on the path.
- Recursion needs a stated nesting in RECURSION_DEPTH; any other fails.
- Frames of dynamic size (alloca, VLAs) are named in a NOTE.
Standard library only; binutils (nm, objdump, c++filt) from --tool-prefix.
"""
import argparse
import collections
import glob
import os
import re
import struct
import subprocess
import sys

# Worst-case stack (bytes) of each library entry point, its internal calls
# included, and the firmware functions it calls back (their frames come from
# the graph). Measured on the disassembly of Debian's arm-none-eabi 12.2
# newlib-nano and libgcc (push/vpush/sub sp of each function, deepest chain of
# bl and b.w, the printf and scanf helpers it reaches through pointers), then
# rounded up by about 10 %. They take the worst branch, rare as it is:
#   vsnprintf 1084 measured: %f (_printf_float > _dtoa_r > bignum allocation)
#     and the failed-allocation assertion, which prints again (720 without it)
#   strftime, localtime, mktime 1072..1196: TZ parsing through siscanf, which
#     only runs when a TZ variable is set (the board has none)
#   strtod 972: hexadecimal input and its failed-allocation assertion
LIBRARY = {
    "vsnprintf": (1200, ["_sbrk"]),
    "snprintf": (1216, ["_sbrk"]),
    "sscanf": (1000, ["_sbrk"]),
    "strtod": (1072, ["_sbrk"]),
    "strftime": (1320, ["_sbrk"]),
    "localtime": (1120, ["_sbrk"]),
    "mktime": (1144, ["_sbrk"]),
    "write": (24, ["_write"]),
    "pow": (216, []),
    "log10": (152, []),
    "log": (120, []),
    "exp": (104, []),
    "sqrt": (80, []),
    "sqrtf": (24, []),
    "strstr": (120, []),
    "strrchr": (32, []),
    "strtol": (64, []),
    "strtoul": (64, []),
    "memchr": (24, []),
    "memcmp": (24, []),
    "memmove": (24, []),
    "memset": (16, []),
    "memcpy": (16, []),
    "strchr": (16, []),
    "strcmp": (16, []),
    "strcpy": (16, []),
    "strlen": (8, []),
    "strncmp": (16, []),
    "strncpy": (16, []),
    "strnlen": (8, []),
    "toupper": (8, []),
    "isgraph": (8, []),
    "isprint": (8, []),
    "__errno": (8, []),
    "__aeabi_dadd": (16, []),
    "__aeabi_dsub": (16, []),
    "__aeabi_dmul": (24, []),
    "__aeabi_ddiv": (24, []),
    "__aeabi_dcmpeq": (16, []),
    "__aeabi_dcmplt": (16, []),
    "__aeabi_dcmple": (16, []),
    "__aeabi_dcmpgt": (16, []),
    "__aeabi_dcmpge": (16, []),
    "__aeabi_d2f": (8, []),
    "__aeabi_f2d": (16, []),
    "__aeabi_i2d": (16, []),
    "__aeabi_ui2d": (16, []),
    "__aeabi_l2d": (16, []),
    "__aeabi_ul2d": (16, []),
    "__aeabi_d2iz": (16, []),
    "__aeabi_d2uiz": (16, []),
    # single precision in software: the emulator's Cortex-M3 has no FPU
    "__aeabi_fadd": (24, []),
    "__aeabi_fsub": (24, []),
    "__aeabi_fmul": (24, []),
    "__aeabi_fdiv": (24, []),
    "__aeabi_fcmpeq": (24, []),
    "__aeabi_fcmplt": (24, []),
    "__aeabi_fcmple": (24, []),
    "__aeabi_fcmpgt": (24, []),
    "__aeabi_fcmpge": (24, []),
    "__aeabi_i2f": (24, []),
    "__aeabi_ui2f": (24, []),
    "__aeabi_f2iz": (24, []),
    "__aeabi_f2uiz": (24, []),
    "__aeabi_ldivmod": (48, []),
    "__aeabi_uldivmod": (48, []),
}

# Recursion the firmware has, with the deepest nesting assumed (how many times
# a function of the cycle may be on the stack at once). Any other recursion
# fails the budget.
#   handle_m2m_comm > exec_main_menu > get_key_m2m > handle_m2m_comm: the
#     machine-to-machine "menu" request opens the main menu, whose key reader
#     serves machine-to-machine lines again; a host asks for the menu once.
#   configuration_menu > (Y, E: edit after copy) > configuration_menu: an
#     operator who edits after a copy nests one level.
RECURSION_DEPTH = {
    "_Z15handle_m2m_commv": 2,
    "_Z18configuration_menuv": 2,
}

HANDLERS = [
    "SysTickIntHandler", "UARTStdioIntHandler", "uart2_isr", "uart3_isr", "uart4_isr",
    "uart5_isr", "uart6_isr", "uart7_isr", "faultISR_handler",
]
SRAM_BASE = 0x20000000
# Mangled codes of the return types that GCC's labels spell out (arm-none-eabi:
# uint32_t is unsigned long); any other return type matches every pointer.
RETURN_CODES = {
    "void": "v", "bool": "b", "char": "c", "int": "i", "unsigned int": "j", "float": "f",
    "double": "d", "int8_t": "a", "uint8_t": "h", "int16_t": "s", "uint16_t": "t",
    "int32_t": "l", "uint32_t": "m", "long int": "l", "long unsigned int": "m",
}
INDIRECT = "__indirect_call"


def tool(prefix, name, *args):
    return subprocess.run([prefix + name, *args], check=True, capture_output=True,
                          text=True).stdout


def sections(path):
    """(name, type, flags, addr, size) of each section of a 32-bit little-endian ELF."""
    with open(path, "rb") as f:
        data = f.read()
    if data[:4] != b"\x7fELF" or data[4] != 1 or data[5] != 1:
        sys.exit(f"size_budget: {path} is not a 32-bit little-endian ELF")
    shoff, = struct.unpack_from("<I", data, 0x20)
    shentsize, shnum, shstrndx = struct.unpack_from("<HHH", data, 0x2E)
    heads = [struct.unpack_from("<IIIIIIIIII", data, shoff + i * shentsize) for i in range(shnum)]
    strtab = heads[shstrndx][4]
    out = []
    for h in heads:
        end = data.index(b"\0", strtab + h[0])
        out.append((data[strtab + h[0]:end].decode(), h[1], h[2], h[3], h[5]))
    return out


# ---- mangled parameter lists, to match indirect calls with their targets ----

class Unparsed(Exception):
    pass


class Demangle:
    """Just enough of the Itanium mangling to compare parameter lists."""

    BUILTIN = set("vwbcahstijlmxyfdegz")

    def __init__(self, s):
        self.s, self.i, self.subs = s, 0, []

    def peek(self):
        return self.s[self.i] if self.i < len(self.s) else ""

    def source_name(self):
        m = re.match(r"\d+", self.s[self.i:])
        if not m:
            raise Unparsed
        n = int(m.group())
        self.i += len(m.group())
        name = self.s[self.i:self.i + n]
        self.i += n
        return name

    def substitution(self):
        m = re.match(r"S([0-9A-Z]*)_|S[tabsiod]", self.s[self.i:])
        if not m:
            raise Unparsed
        self.i += len(m.group())
        if m.group().endswith("_"):
            seq = m.group(1)
            k = 0 if seq == "" else int(seq, 36) + 1
            if k >= len(self.subs):
                raise Unparsed
            return self.subs[k]
        return m.group()

    def template_args(self):
        self.i += 1  # I
        args = []
        while self.peek() != "E":
            if self.peek() == "L":
                j = self.s.index("E", self.i)
                args.append(self.s[self.i:j + 1])
                self.i = j + 1
            else:
                args.append(self.type())
        self.i += 1
        return "I" + "".join(args) + "E"

    def nested(self):
        self.i += 1  # N
        while self.peek() in ("K", "V", "r"):
            self.i += 1
        prefix = ""
        while self.peek() != "E":
            c = self.peek()
            if c.isdigit():
                prefix += "::" + self.source_name()
            elif c == "S":
                prefix += self.substitution()
                continue
            elif c == "I":
                prefix += self.template_args()
            else:
                raise Unparsed
            self.subs.append(prefix)
        self.i += 1
        return prefix

    def type(self):
        c = self.peek()
        if c in self.BUILTIN:
            self.i += 1
            return c
        if c == "D":
            self.i += 2
            return self.s[self.i - 2:self.i]
        if c in "PROKV":
            self.i += 1
            t = c + self.type()
        elif c == "F":
            self.i += 1
            ret = self.type()
            params = []
            while self.peek() != "E":
                params.append(self.type())
            self.i += 1
            t = "F" + ret + ",".join(params) + "E"
        elif c.isdigit():
            t = self.source_name()
            if self.peek() == "I":
                self.subs.append(t)
                t += self.template_args()
        elif c == "N":
            return self.nested()
        elif c == "S":
            t = self.substitution()
            if self.peek() != "I":
                return t
            t += self.template_args()
        elif c == "A":
            self.i += 1
            n = re.match(r"\d*", self.s[self.i:]).group()
            self.i += len(n) + 1
            t = "A" + n + self.type()
        else:
            raise Unparsed
        self.subs.append(t)
        return t


def past_name(sym):
    """A demangler standing after the function's name, or None (not a plain mangled function)."""
    sym = sym.split(".")[0]
    if not sym.startswith("_Z"):
        return None
    d = Demangle(sym)
    d.i = 2
    if d.peek() == "L":
        d.i += 1
    if d.peek() == "N":
        d.nested()
    elif d.peek().isdigit():
        d.source_name()
    else:
        return None
    return d


def params_of_function(sym):
    """Parameter types of a mangled function, or None (plain C names: unknown)."""
    try:
        d = past_name(sym)
        if d is None:
            return None
        if d.peek() == "I":
            return None  # templates encode a return type first
        params = []
        while d.i < len(d.s):
            params.append(d.type())
        return tuple(params)
    except (Unparsed, ValueError, IndexError):
        return None


def pointer_params_of(sym):
    """(return type, parameter list) of each function pointer a mangled function takes."""
    found = set()
    try:
        d = past_name(sym)
        if d is None:
            return set()
        while d.i < len(d.s):
            t = d.type()
            for m in re.finditer(r"PF", t):
                inner = Demangle(t[m.start() + 1:])
                inner.subs = d.subs
                try:
                    inner.i = 1
                    void = inner.type()
                    ps = []
                    while inner.peek() != "E":
                        ps.append(inner.type())
                    found.add((void, tuple(ps)))
                except (Unparsed, ValueError, IndexError):
                    found.add(None)
    except (Unparsed, ValueError, IndexError):
        found.add(None)
    return found


# ---- the call graph ----

def linked_objects(map_path):
    """Absolute paths of the objects the map says were linked, or None."""
    if not os.path.exists(map_path):
        return None
    base = os.path.dirname(os.path.abspath(map_path))
    with open(map_path, errors="replace") as f:
        return {os.path.normpath(os.path.join(base, line[5:].strip()))
                for line in f if line.startswith("LOAD ") and line.rstrip().endswith(".obj")}


def read_graph(objdir, defined, linked):
    """Frames and direct edges of every function defined in the image."""
    frame, dynamic, edges, files = {}, set(), collections.defaultdict(set), {}
    returns = {}
    node_re = re.compile(r'node: \{ title: "([^"]*)" label: "(.*)"')
    edge_re = re.compile(r'edge: \{ sourcename: "([^"]*)" targetname: "([^"]*)"')
    size_re = re.compile(r"\\n(\d+) bytes \(([a-z,]+)\)")
    for ci in sorted(glob.glob(os.path.join(objdir, "**", "*.ci"), recursive=True)):
        if linked is not None and os.path.normpath(os.path.abspath(ci[:-3] + ".obj")) not in linked:
            continue  # left over from a source that is gone
        title = None
        with open(ci, errors="replace") as f:
            for line in f:
                if title is None:
                    m = re.match(r'graph: \{ title: "([^"]*)"', line)
                    title = m.group(1) if m else ""
                    files[ci[:-3] + ".obj"] = title
                    continue
                m = node_re.match(line)
                if m:
                    s = size_re.search(m.group(2))
                    if s and symbol(m.group(1)) in defined:
                        key = m.group(1)
                        frame[key] = max(frame.get(key, 0), int(s.group(1)))
                        label = m.group(2)
                        head = re.match(r"(?:static )?([\w ]+?) [\w:~<>{}]+\(", label)
                        if head:  # variadic labels lose their head
                            returns[key] = RETURN_CODES.get(head.group(1))
                        if s.group(2) != "static":
                            dynamic.add(key)
                    continue
                m = edge_re.match(line)
                if m:
                    edges[m.group(1)].add(m.group(2).lstrip("*"))
    return frame, dynamic, edges, files, returns


def symbol(key):
    """ELF symbol of a graph key ("file:sym" for file-local functions)."""
    return key.rsplit(":", 1)[-1]


def address_taken(prefix, objdir, files, frame):
    """target -> the functions (or None for data) that take its address."""
    by_sym = collections.defaultdict(list)
    for key in frame:
        by_sym[symbol(key)].append(key)
    taken = collections.defaultdict(set)
    objs = sorted(glob.glob(os.path.join(objdir, "**", "*.obj"), recursive=True))
    for obj in objs:
        title = files.get(obj)
        if title is None:
            continue
        section = ""
        for line in tool(prefix, "objdump", "-r", obj).splitlines():
            m = re.match(r"RELOCATION RECORDS FOR \[(.*)\]:", line)
            if m:
                section = m.group(1)
                continue
            f = line.split()
            if len(f) != 3 or f[1] in ("R_ARM_THM_CALL", "R_ARM_THM_JUMP24", "R_ARM_CALL",
                                       "R_ARM_JUMP24", "R_ARM_NONE", "R_ARM_V4BX"):
                continue
            if section.startswith((".isr_vector", ".ARM.", ".debug")):
                continue
            sym = f[2].split("+")[0]
            if sym.startswith(".text."):
                sym = sym[len(".text."):]
            local = f"{title}:{sym}"
            target = local if local in frame else (sym if sym in frame else None)
            if target is None:
                continue
            taker = None
            if section.startswith(".text."):
                s = section[len(".text."):]
                taker = f"{title}:{s}" if f"{title}:{s}" in frame else s
            taken[target].add(taker)
    return taken


class Stack:
    def __init__(self, frame, dynamic, edges, taken, aliases, returns):
        self.frame, self.dynamic, self.edges, self.taken = frame, dynamic, edges, taken
        self.aliases = aliases
        self.memo = {}
        self.unknown, self.library, self.notes = set(), set(), set()
        self.recursion = {}  # cycle members -> (bound, stated)
        callers = collections.defaultdict(set)
        for src, dsts in edges.items():
            for d in dsts:
                callers[self.resolve(d)].add(src)
        self.callers = callers
        self.params = {k: params_of_function(symbol(k)) for k in taken}
        self.returns = returns
        self.scc = self.cycles()

    def resolve(self, name):
        if name in self.frame or name in LIBRARY or name == INDIRECT:
            return name
        return self.aliases.get(name, name)

    def callees(self, key):
        # sorted: the memo makes the walk order-dependent; keep it the same on every run
        return [self.resolve(c) for c in sorted(self.edges.get(key, ()))]

    def cycles(self):
        """Function -> its strongly connected component, for the recursive ones."""
        index, low, on, stack, out, n = {}, {}, set(), [], {}, [0]

        def visit(v):  # iterative Tarjan: the graph can be deep
            work = [(v, iter(self.callees(v)))]
            index[v] = low[v] = n[0]
            n[0] += 1
            stack.append(v)
            on.add(v)
            while work:
                u, it = work[-1]
                for w in it:
                    if w not in self.frame:
                        continue
                    if w not in index:
                        index[w] = low[w] = n[0]
                        n[0] += 1
                        stack.append(w)
                        on.add(w)
                        work.append((w, iter(self.callees(w))))
                        break
                    if w in on:
                        low[u] = min(low[u], index[w])
                else:
                    work.pop()
                    if work:
                        low[work[-1][0]] = min(low[work[-1][0]], low[u])
                    if low[u] == index[u]:
                        comp = set()
                        while True:
                            w = stack.pop()
                            on.discard(w)
                            comp.add(w)
                            if w == u:
                                break
                        if len(comp) > 1 or u in self.callees(u):
                            frozen = frozenset(comp)
                            for w in comp:
                                out[w] = frozen
        for v in sorted(self.frame):
            if v not in index:
                visit(v)
        return out

    def bound(self, comp):
        for key in comp:
            if symbol(key) in RECURSION_DEPTH:
                self.recursion[comp] = (RECURSION_DEPTH[symbol(key)], True)
                return RECURSION_DEPTH[symbol(key)]
        self.recursion[comp] = (1, False)
        return 1

    def ancestors(self, key):
        seen, todo = {key}, [key]
        while todo:
            for c in self.callers.get(todo.pop(), ()):
                if c not in seen:
                    seen.add(c)
                    todo.append(c)
        return seen

    def indirect_targets(self, key):
        wanted = pointer_params_of(symbol(key))
        if not wanted or None in wanted:
            return set(self.taken)
        up = self.ancestors(key)
        out = set()
        for t, takers in self.taken.items():
            p, ret = self.params.get(t), self.returns.get(t)
            if not any((p is None or p == wp) and (ret is None or ret == wr) for wr, wp in wanted):
                continue
            if any(k is None or k in up for k in takers):
                out.add(t)
        return out

    def depth(self, key, path=()):
        """(bytes, [(name, frame)...]) of the deepest chain from key."""
        if key in self.memo:
            return self.memo[key]
        if key in LIBRARY:
            cost, calls = LIBRARY[key]
            self.library.add(key)
            best = max((self.depth(self.resolve(c), path + (key,)) for c in calls
                        if self.resolve(c) in self.frame), default=(0, []), key=lambda d: d[0])
            return cost + best[0], [(key + "*", cost)] + best[1]
        if key not in self.frame:
            self.unknown.add(key)
            return 0, [(key + "?", 0)]
        if key in self.dynamic:
            self.notes.add(f"{key}: frame of dynamic size, not counted")
        comp = self.scc.get(key)
        path = path + (key,)
        best = (0, [])
        for callee in self.callees(key):
            if callee == INDIRECT:
                for t in sorted(self.indirect_targets(key)):
                    if t not in path:
                        d = self.depth(t, path)
                        if d[0] > best[0]:
                            best = (d[0], [("(indirect)", 0)] + d[1])
                continue
            if callee in path:
                # a way back into the cycle: one more pass, up to its bound
                if comp is None or callee not in comp or path.count(callee) >= self.bound(comp):
                    continue
            d = self.depth(callee, path)
            if d[0] > best[0]:
                best = d
        out = (self.frame[key] + best[0], [(key, self.frame[key])] + best[1])
        if comp is None:
            self.memo[key] = out
        return out


def demangler(prefix, names):
    names = sorted(set(names))
    if not names:
        return {}
    out = subprocess.run([prefix + "c++filt", "-p"], input="\n".join(names), check=True,
                         capture_output=True, text=True).stdout.splitlines()
    return dict(zip(names, out))


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--elf", required=True)
    ap.add_argument("--map", help="the link map (default: the ELF's name with .map)")
    ap.add_argument("--objdir", required=True, help="the target's object directory (.obj, .ci)")
    ap.add_argument("--tool-prefix", default="arm-none-eabi-")
    ap.add_argument("--flash-bytes", type=int, default=256 * 1024)
    ap.add_argument("--ram-bytes", type=int, default=32 * 1024)
    ap.add_argument("--flash-limit", type=int, default=224 * 1024)
    ap.add_argument("--ram-limit", type=int, default=30 * 1024)
    ap.add_argument("--exception-frame", type=int, default=108,
                    help="bytes the core pushes on interrupt entry (default: Cortex-M4F FP frame)")
    ap.add_argument("--budget", action="store_true", help="exit non-zero when over a limit")
    ap.add_argument("--verbose", action="store_true",
                    help="also every handler's path, the targets of each indirect call, the library table")
    a = ap.parse_args()
    pre = a.tool_prefix

    # -- flash and static RAM --
    SHF_ALLOC, SHT_NOBITS = 2, 8
    flash = ram = stack_reserve = 0
    ram_parts = []
    for name, typ, flags, addr, size in sections(a.elf):
        if not flags & SHF_ALLOC or size == 0:
            continue
        if typ != SHT_NOBITS:
            flash += size
        if SRAM_BASE <= addr < SRAM_BASE + a.ram_bytes:
            ram += size
            ram_parts.append(f"{name} {size}")
        if name == ".stack":
            stack_reserve = size

    syms = []
    for line in tool(pre, "nm", "-S", "--size-sort", a.elf).splitlines():
        f = line.split()
        if len(f) == 4:
            syms.append((int(f[1], 16), int(f[0], 16), f[3]))
    defined = collections.defaultdict(list)  # name -> addresses
    by_addr = collections.defaultdict(set)
    for line in tool(pre, "nm", a.elf).splitlines():
        f = line.split()
        if len(f) == 3 and f[1] in "tTwW":
            defined[f[2]].append(f[0])
            by_addr[f[0]].add(f[2])

    # -- stack --
    linked = linked_objects(a.map or os.path.splitext(a.elf)[0] + ".map")
    frame, dynamic, edges, files, returns = read_graph(a.objdir, defined, linked)
    taken = address_taken(pre, a.objdir, files, frame)
    aliases = {}
    for name, addrs in defined.items():
        if name in frame:
            continue
        for other in by_addr[addrs[0]]:
            if other in frame:
                aliases[name] = other
    for key in frame:  # file-local functions are named by their file in the graph
        aliases.setdefault(symbol(key), key)
    st = Stack(frame, dynamic, edges, taken, aliases, returns)

    names = demangler(pre, [s for _, _, s in syms] + [symbol(k) for k in frame] + list(LIBRARY))

    def find(name):  # graph keys of a function, by its plain name
        return [k for k in frame if names.get(symbol(k), symbol(k)) == name] or \
            [st.resolve(n) for n in defined if names.get(n, n) == name]

    def deepest(keys):
        return max((st.depth(k) for k in keys), default=(0, []), key=lambda d: d[0])

    main_d = deepest(find("ResetISR"))
    sample_d = deepest(find("get_sample"))
    handlers = [(h, deepest(find(h))) for h in HANDLERS]
    worst_h = max(handlers, key=lambda h: h[1][0])
    worst = main_d[0] + worst_h[1][0] + a.exception_frame
    # A frame of 0 for the entry or the sample cycle means their .su/.ci files
    # are missing (a compiler cache hit writes none): no figure beats a false one.
    if not main_d[1] or not frame or main_d[0] == 0 or sample_d[0] == 0:
        sys.exit(f"size_budget: no call graph for ResetISR under {a.objdir} "
                 "(built without -fcallgraph-info=su, or through a compiler cache?)")

    # -- report --
    def short(name, width=40):
        n = names.get(name, name)
        return n if len(n) <= width else n[:width - 1] + "~"

    def chain(d):
        out = []
        for key, b in d[1]:
            mark = key[-1] if key[-1] in "*?" else ""
            name = short(symbol(key.rstrip("*?"))) + mark
            out.append(f"{name} {b}" if key[0] != "(" else name)
        return out

    def wrap(head, parts, indent="  ", width=100, sep=" >"):
        out, line = [], indent + head
        for i, part in enumerate(parts):
            part += sep if i + 1 < len(parts) else ""
            if len(line) + 1 + len(part) > width:
                out.append(line)
                line = indent + "  "
            line += " " + part
        out.append(line)
        return out

    top_flash = sorted((s for s in syms if s[1] < SRAM_BASE), reverse=True)[:10]
    top_ram = sorted((s for s in syms if s[1] >= SRAM_BASE), reverse=True)[:10]
    lines = [f"{os.path.basename(a.elf)}: flash {flash} of {a.flash_bytes}, "
             f"static RAM {ram} of {a.ram_bytes} ({', '.join(ram_parts)})",
             f"  {'largest in flash':<48} largest in RAM"]
    for i in range(max(len(top_flash), len(top_ram))):
        lf = f"{top_flash[i][0]:6} {short(top_flash[i][2])}" if i < len(top_flash) else ""
        lr = f"{top_ram[i][0]:6} {short(top_ram[i][2])}" if i < len(top_ram) else ""
        lines.append(f"  {lf:<48} {lr}")
    lines.append(f"stack: main {main_d[0]} (get_sample {sample_d[0]}) + handler {worst_h[0]} "
                 f"{worst_h[1][0]} + exception frame {a.exception_frame} = {worst}")
    lines += wrap("main:", chain(main_d))
    lines += wrap(f"{worst_h[0]}:", chain(worst_h[1]))
    shown = sorted({k.rstrip("*") for k, _ in main_d[1] + worst_h[1][1] if k.endswith("*")})
    if shown:
        lines += wrap(f"* library, assumed ({len(st.library)} reached, table in "
                      f"{os.path.basename(__file__)}):", [f"{n} {LIBRARY[n][0]}" for n in shown], sep=",")
    if st.unknown:
        lines += wrap("? unknown callees, counted 0:", sorted(short(u, 30) for u in st.unknown), sep=",")
    if a.verbose:
        lines += wrap("get_sample:", chain(sample_d))
        for h, d in handlers:
            lines += wrap(f"{h} {d[0]}:", chain(d))
        for key in sorted(k for k in frame if INDIRECT in st.edges.get(k, ())):
            targets = sorted(st.indirect_targets(key), key=lambda t: -st.depth(t)[0])
            lines += wrap(f"indirect in {short(symbol(key))} ({len(targets)} targets):",
                          [f"{short(symbol(t), 30)} {st.depth(t)[0]}" for t in targets[:4]], sep=",")
        lines += wrap("library table:", [f"{n} {c}" for n, (c, _) in sorted(LIBRARY.items())], sep=",")
    for comp, (depth, stated) in sorted(st.recursion.items(), key=lambda r: sorted(r[0])):
        cycle = ", ".join(sorted(short(symbol(k), 30) for k in comp))
        lines.append(f"  recursion {{{cycle}}}: " +
                     (f"nesting {depth} assumed" if stated else "NO BOUND (add it to RECURSION_DEPTH)"))
    for n in sorted(st.notes):
        lines.append(f"  NOTE: {n}")

    failed = False
    if a.budget:
        for what, fig, limit in (("flash", flash, a.flash_limit), ("static RAM", ram, a.ram_limit),
                                 ("stack worst case", worst, stack_reserve)):
            margin = limit - fig
            ok = margin >= 0
            failed |= not ok
            lines.append(f"budget {what:<16} {fig:7} of {limit:7}  margin {margin:6}  "
                         f"{'ok' if ok else 'OVER'}")
        unbounded = sum(1 for _, stated in st.recursion.values() if not stated)
        if unbounded:
            failed = True
            lines.append(f"budget stack recursion: {unbounded} cycle(s) without a stated nesting  OVER")
        if failed:
            lines.append("size_budget: OVER BUDGET")
    else:
        lines.append(f"stack worst case {worst} of the {stack_reserve}-byte reserve (no budget here)")
    print("\n".join(lines))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
