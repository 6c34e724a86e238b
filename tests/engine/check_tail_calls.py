"""Fails when a record handler of the engine calls the next one where it should jump.

    check_tail_calls.py OBJDUMP LIBRARY        OBJDUMP: of binutils or of LLVM

A handler that keeps a local in memory, or calls with registers to save, makes the compiler return to
it: programs of records then eat the stack, and slowly. C++ cannot say so with g++; the machine code
can be asked.
"""
import re
import subprocess
import sys

# uint32_t, four floats, float: the end of every handler's parameters.
HANDLER = re.compile(r"jDv4_ff(\.\w+)*$")
FUNCTION = re.compile(r"^[0-9a-f]+ <(.+)>:$")
INSTRUCTION = re.compile(r"^ *[0-9a-f]+:\s+(?:notrack |bnd )?(\w+)\s*(.*)$")
TARGET = re.compile(r"<([^>+]+)")

ENDS_THE_RUN = {"stopStep", "finishStep", "plainRunStep"}
RUNS_PLAIN_HANDLERS = {"plainStep", "plainCallStep", "plainRunStep"}
FEWEST_HANDLERS = 500


def handlers(objdump, library):
    """Names of handlers with their instructions as pairs of mnemonic and operands."""
    text = subprocess.run([objdump, "-d", "--no-show-raw-insn", library], check=True,
                          capture_output=True, text=True).stdout
    found = {}
    code = None
    for line in text.splitlines():
        function = FUNCTION.match(line)
        if function:
            name = function[1]
            is_handler = HANDLER.search(name) and not name.endswith(".cold")
            code = found.setdefault(name, []) if is_handler else None
        elif code is not None and (instruction := INSTRUCTION.match(line)):
            code.append(instruction.groups())
    return found


def fault_of(name, code):
    def is_one_of(names):
        return any(f"{len(short)}{short}E" in name for short in names)

    jumps = [operands for mnemonic, operands in code if mnemonic.startswith("jmp")]
    calls = [operands for mnemonic, operands in code if mnemonic.startswith("call")]

    def reaches_handler(operands):
        target = TARGET.search(operands)
        return bool(target and HANDLER.search(target[1]) and target[1] != name)

    if any(map(reaches_handler, calls)):
        return "calls another handler"
    if any(operands.startswith("*") for operands in calls) and not is_one_of(RUNS_PLAIN_HANDLERS):
        return "calls through a pointer"
    goes_on = any(operands.startswith("*") or reaches_handler(operands) for operands in jumps)
    if not goes_on and not is_one_of(ENDS_THE_RUN):
        return "does not jump to the next record"
    return None


def main():
    found = handlers(*sys.argv[1:])
    faults = {name: fault for name, code in found.items() if (fault := fault_of(name, code))}
    for name, fault in list(faults.items())[:20]:
        print(f"{name} {fault}")
    if len(found) < FEWEST_HANDLERS:
        sys.exit(f"only {len(found)} handlers found")
    if faults:
        sys.exit(f"{len(faults)} of {len(found)} handlers")
    print(f"{len(found)} handlers")


main()
