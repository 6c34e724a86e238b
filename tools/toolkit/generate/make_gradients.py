#!/usr/bin/env python3
"""Writes src/noise/gradients.inc: 256 unit vectors spread over all directions.

    tools/toolkit/generate/make_gradients.py > src/noise/gradients.inc

The vectors are the points of a Fibonacci sphere in shuffled order, as decimals of six places. Five
rows are pinned, because reference values of the noise functions depend on them; each takes the
place of the sphere point nearest to it.
"""

import itertools
import math
import random
import struct

COUNT = 256
STEP = 1e-6
PINNED = {
    0: (-0.215150, -0.946627, -0.240017),
    1: (-0.779977, -0.409386, -0.473328),
    2: (0.498366, -0.800667, 0.332512),
    3: (0.311809, 0.601349, -0.735632),
    255: (0.707417, 0.644714, 0.289663),
}


def fibonacci_sphere(count):
    golden_angle = math.pi * (3 - math.sqrt(5))
    for i in range(count):
        z = 1 - (2 * i + 1) / count
        radius = math.sqrt(1 - z * z)
        yield (radius * math.cos(golden_angle * i), radius * math.sin(golden_angle * i), z)


def single(value):
    return struct.unpack("f", struct.pack("f", value))[0]


def length_error(vector):
    return abs(math.sqrt(sum(single(c) ** 2 for c in vector)) - 1)


def rounded(vector):
    """The six-place neighbour of the vector whose length is nearest to 1."""
    neighbours = itertools.product(
        *([(math.floor(c / STEP) + up) * STEP for up in (0, 1)] for c in vector))
    return min((tuple(round(c, 6) for c in n) for n in neighbours), key=length_error)


def gradients():
    points = list(fibonacci_sphere(COUNT))
    for pinned in PINNED.values():
        points.remove(min(points, key=lambda p: math.dist(p, pinned)))
    random.Random(256).shuffle(points)
    free = iter(points)
    return [PINNED[i] if i in PINNED else rounded(next(free)) for i in range(COUNT)]


def main():
    rows = gradients()
    assert max(length_error(row) for row in rows) < 1e-6
    print("// Made by tools/toolkit/generate/make_gradients.py: x, y and z of each gradient.")
    for x, y, z in rows:
        print(f"{{{x:.6f}F, {y:.6f}F, {z:.6f}F}},")


if __name__ == "__main__":
    main()
