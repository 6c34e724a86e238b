#!/usr/bin/env python3
"""Computes noise values for noise_test.cpp, independently of the library's code.

    tests/noise/make_reference_values.py > tests/noise/reference_values.inc

Python floats are doubles; single precision is had by rounding every result, which is exact for the
four operations.
"""

import math
import pathlib
import re
import struct

SOURCE = pathlib.Path(__file__).resolve().parents[2] / "src" / "noise"
INT_MIN = -(2**31)


def single(value):
    try:
        return struct.unpack("f", struct.pack("f", value))[0]
    except OverflowError:
        return math.copysign(math.inf, value)


def bits(value):
    return struct.unpack("I", struct.pack("f", value))[0]


def double_bits(value):
    return struct.unpack("Q", struct.pack("d", value))[0]


def numbers(name):
    text = re.sub(r"//.*", "", (SOURCE / name).read_text())
    return re.findall(r"-?\d+(?:\.\d+)?", text)


PERMUTATION = [int(n) for n in numbers("permutation.inc")]
COMPONENTS = [single(float(n)) for n in numbers("gradients.inc")]


def cell(c):
    c = c - 1.0 + 1e-9 if c < 0 else c
    if not -2147483649.0 < c < 2147483648.0:
        return INT_MIN
    return int(c)


def wrap_int(i):
    return (i + 2**31) % 2**32 - 2**31


def corner(cells, offsets, far):
    i, j, k = (wrap_int(c + f) for c, f in zip(cells, far))
    x, y, z = (offsets[axis][f] for axis, f in enumerate(far))
    row = (i % 256 + PERMUTATION[(j % 256 + PERMUTATION[k % 256]) % 256]) % 256
    gx, gy, gz = COMPONENTS[3 * row : 3 * row + 3]
    return single(single(single(gx * x) + single(gy * y)) + single(gz * z))


def kernel(point):
    scaled = [single(c) for c in point]
    cells = [cell(c) for c in scaled]
    offsets = [[single(c - single(wrap_int(n + f))) for f in (0, 1)]
               for c, n in zip(scaled, cells)]
    u, v, w = (((t * t) * t) * (t * (6.0 * t - 15.0) + 10.0) for t in (o[0] for o in offsets))
    planes = []
    for c in (0, 1):
        edges = []
        for b in (0, 1):
            near, far = (corner(cells, offsets, (a, b, c)) for a in (0, 1))
            edges.append(near + (far - near) * u)
        planes.append(edges[0] + (edges[1] - edges[0]) * v)
    return planes[0] + (planes[1] - planes[0]) * w


def noise3(point):
    value = (kernel(point) + kernel([2 * c for c in point]) + kernel([4 * c for c in point])) / 3
    t = single(single(1.0 + value) * 0.5)
    if 0.5 + 1e-6 >= t:
        r = single(single(t * 0.5) / single(0.5 + single(1e-6)))
    else:
        one = struct.unpack("f", struct.pack("I", 0x3F800008))[0]
        r = single(single(single(single(t - 0.5) * 0.5) / single(one - 0.5)) + 0.5)
    return single(single(r - 1.0) + r)


def noise(values):
    point = (list(values[:3]) + [0.0] * 3)[:3]
    if len(values) < 4:
        return noise3(point)
    w = values[3]
    whole = float(math.floor(w))
    fraction = single(w - whole)

    def at(steps):
        return noise3([single(single(k * steps) + p) for k, p in zip((9, 17, 51), point)])

    here = single(single(1.0 - fraction) * at(whole))
    return single(here + single(fraction * at(single(whole + 1.0))))


def points():
    state = 12345
    for length in (1, 2, 3, 4) * 8:
        values = []
        for _ in range(length):
            state = (state * 1103515245 + 12345) % 2**31
            values.append(single((state / 2**31 - 0.5) * 10 ** (state % 5)))
        yield values
    yield from ([0.5], [0.3, -1.0, 0.7], [0.3, 0.4, -1e-10], [-0.25, 0.0, 1e-10], [-1e-10, 0.75, -1.0], [255.5, -256.5, 0.5],
                [1e6, -3e7, 0.25], [-16777216.0, 0.5, 0.5], [3e9, 0.5, 0.5], [-3e9, 0.125, 0.5],
                [0.5, 0.5, 0.5, -0.5], [0.1, 0.2, 0.3, -8388608.0], [1.5, 2.5, 3.5, 7.0])


def main():
    print("// Made by make_reference_values.py: components of the point, its noise and (of the first")
    print("// three components) the kernel's value, as words.")
    for values in points():
        words = ", ".join(f"0x{bits(v):08X}" for v in values)
        value = kernel((list(values[:3]) + [0.0] * 3)[:3])
        print(f"{{{{{words}}}, 0x{bits(noise(values)):08X}, 0x{double_bits(value):016X}}},")


if __name__ == "__main__":
    main()
