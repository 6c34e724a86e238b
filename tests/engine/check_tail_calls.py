"""Fails when a record handler of the engine calls the next one where it should jump.

    check_tail_calls.py OBJDUMP LIBRARY        OBJDUMP: of binutils or of LLVM

A handler that keeps a local in memory, or calls with registers to save, makes the compiler return to
it: programs of records then eat the stack, and slowly. C++ cannot say so with g++; the machine code
can be asked.
"""
import re
import subprocess
import sys

# The parameters of every handler: record, machine, uint32_t, four floats, float.
HANDLER = re.compile(r"6RecordERN\w+7MachineEjDv4_ff(\.\w+)*$")
FUNCTION = re.compile(r"^[0-9a-f]+ <(.+)>:$")
INSTRUCTION = re.compile(r"^ *[0-9a-f]+:\s+(?:notrack |bnd )?(\w+)\s*(.*)$")
TARGET = re.compile(r"<([^>+]+)")

# Of x86-64, aarch64 and riscv64; none means two things.
JUMPS = {"jmp", "jmpq", "b", "br", "j", "jr"}
CALLS = {"call", "callq", "bl", "blr", "jal", "jalr"}
THROUGH_A_REGISTER = {"br", "blr", "jr", "jalr"}

ENDS_THE_RUN = {"stopStep", "finishStep", "plainRunStep", "endStep"}
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

    jumps = [pair for pair in code if pair[0] in JUMPS]
    calls = [pair for pair in code if pair[0] in CALLS]

    def reaches_handler(instruction):
        target = TARGET.search(instruction[1])
        return bool(target and HANDLER.search(target[1]) and target[1] != name)

    # What lies relative to the code is an entry of the linker's table: a function of a library.
    def is_through_pointer(instruction):
        mnemonic, operands = instruction
        return (mnemonic in THROUGH_A_REGISTER or
                operands.startswith("*") and "(%rip)" not in operands)

    if any(map(reaches_handler, calls)):
        return "calls another handler"
    if any(map(is_through_pointer, calls)) and not is_one_of(RUNS_PLAIN_HANDLERS):
        return "calls through a pointer"
    goes_on = any(is_through_pointer(jump) or reaches_handler(jump) for jump in jumps)
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
