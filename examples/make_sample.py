#!/usr/bin/env python3
"""Draws examples/lake.png: an evening lake, 320 x 200, RGBA of 8 bits, with soft round corners.

Needs python3-numpy and python3-pil. Usage: make_sample.py OUT.png
"""

import sys

import numpy as np
from PIL import Image

WIDTH, HEIGHT, SCALE = 320, 200, 3
HORIZON, SUN, SUN_RADIUS = 0.62, (0.66, 0.42), 0.075


def mix(a, b, t):
    t = np.clip(t, 0, 1)[..., None]
    return np.asarray(a, float) * (1 - t) + np.asarray(b, float) * t


def ridge(x, base, height, phases):
    """Height of a chain of hills over x, from a few sine waves."""
    line = sum(np.sin(x * frequency + shift) / frequency for frequency, shift in phases)
    return base - height * (0.5 + 0.5 * line)


def sky_and_hills(x, y):
    colour = mix((38, 44, 92), (244, 146, 96), (y / HORIZON) ** 1.3)
    distance = np.hypot((x - SUN[0]) * WIDTH / HEIGHT, y - SUN[1])
    colour = mix(colour, (255, 214, 140), np.exp(-distance / 0.14) * 0.8)
    colour = mix(colour, (255, 244, 214), (SUN_RADIUS - distance) * 300)
    for base, height, shade, phases in (
        (0.60, 0.20, (128, 84, 112), [(5, 0.4), (11, 2.0), (23, 1.0)]),
        (0.62, 0.14, (78, 58, 96), [(4, 2.6), (9, 0.3), (31, 0.0)]),
        (0.63, 0.08, (40, 38, 70), [(7, 1.2), (17, 4.0), (41, 2.0)]),
    ):
        colour = mix(colour, shade, (y - ridge(x, base, height, phases)) * 400)
    return colour


def picture():
    rows, columns = np.mgrid[0 : HEIGHT * SCALE, 0 : WIDTH * SCALE]
    x, y = (columns + 0.5) / (WIDTH * SCALE), (rows + 0.5) / (HEIGHT * SCALE)
    depth = np.clip((y - HORIZON) / (1 - HORIZON), 0, 1)
    ripple = 0.012 * depth * np.sin(y * y * 260) + 0.004 * np.sin(y * 420 + x * 9)
    mirrored = sky_and_hills(x + ripple, np.clip(2 * HORIZON - y + ripple, 0, HORIZON))
    water = mix(mirrored, (24, 32, 70), 0.25 + 0.45 * depth)
    colour = np.where((y < HORIZON)[..., None], sky_and_hills(x, y), water)

    radius = 0.09 * HEIGHT
    across = np.maximum(np.abs(x - 0.5) * WIDTH - (WIDTH / 2 - radius), 0)
    along = np.maximum(np.abs(y - 0.5) * HEIGHT - (HEIGHT / 2 - radius), 0)
    alpha = np.clip((radius - np.hypot(across, along)) / 2.0, 0, 1) * 255

    fine = np.dstack([colour, alpha])
    return fine.reshape(HEIGHT, SCALE, WIDTH, SCALE, 4).mean(axis=(1, 3))


def main():
    image = Image.fromarray((picture() + 0.5).astype(np.uint8), "RGBA")
    image.save(sys.argv[1], optimize=True, dpi=(72, 72))


if __name__ == "__main__":
    main()
