"""Turns a traced scene in linear light into a backdrop: halos, room for the text, grain.

Whole numbers throughout (linear light from 0 to 65535), so that every machine gets the same bytes.
"""

import math

import numpy
from PIL import Image

SIZE = (1920, 1080)
WHITE = 65535
# White text stands below the first of these rows, and left of the column also below the second: in
# the smallest window the layout moves the text up. From LEAD rows above, the light is held back.
TEXT_FROM = 305
TEXT_FROM_IN_SMALL_WINDOW = 207
TEXT_UP_TO = 1625
LEAD = 60
# A veil takes the contrast out of the picture behind the text, over VEIL rows.
VEIL_FROM = 200
VEIL = 260
# White text on this luminance has a contrast of 7.5 to 1; the grain stays above 7.
TEXT_LIGHT = int(WHITE * (1.05 / 7.5 - 0.05))
NIGHT = numpy.array([40, 190, 560])


def develop(film):
    light = add_halo(read_film(film))
    return print_with_grain(calm_text_area(light))


def read_film(film):
    """A PPM file of SIZE at 16 bits per channel as an array of rows, columns and channels."""
    width, height = SIZE
    pixels = film.read_bytes()[-width * height * 3 * 2:]
    return numpy.frombuffer(pixels, ">u2").reshape(height, width, 3).astype(numpy.int64)


def luminance(light):
    return (light * numpy.array([2126, 7152, 722])).sum(axis=2) // 10000


def box_blur(light, radius):
    """Each value becomes the mean of its neighbourhood along both axes; edges repeat."""
    for axis in (0, 1):
        padding = [(0, 0)] * light.ndim
        padding[axis] = (radius + 1, radius)
        sums = numpy.pad(light, padding, mode="edge").cumsum(axis=axis)
        length = light.shape[axis]
        window = 2 * radius + 1
        upper = numpy.take(sums, range(window, window + length), axis=axis)
        lower = numpy.take(sums, range(length), axis=axis)
        light = (upper - lower) // window
    return light


def add_halo(light):
    """Bright places shine into their surroundings, as they do in a lens: near and far."""
    rows, columns, channels = light.shape
    bright = numpy.maximum(light - WHITE // 5, 0)
    coarse = bright.reshape(rows // 4, 4, columns // 4, 4, channels).sum(axis=(1, 3)) // 16
    near, far = coarse, coarse
    for _ in range(3):
        near = box_blur(near, 2)
        far = box_blur(far, 16)
    halo = (near * 3 + far * 6) // 8
    fine = box_blur(halo.repeat(4, axis=0).repeat(4, axis=1), 3)
    return light + fine


def ramp(start, length, count):
    """From 0 up to `start` to 256 after `length` more of `count` steps, without a corner."""
    step = numpy.clip((numpy.arange(count) - start) * 256 // length, 0, 256)
    return step * step * (768 - 2 * step) // 65536


def text_area():
    """256 where text may stand, 0 where it never does, for each pixel."""
    columns, rows = SIZE
    below = ramp(TEXT_FROM - LEAD, LEAD, rows)[:, None]
    below_in_small_window = ramp(TEXT_FROM_IN_SMALL_WINDOW - LEAD, LEAD, rows)[:, None]
    left = 256 - ramp(TEXT_UP_TO, LEAD, columns)[None, :]
    return numpy.maximum(below, below_in_small_window * left // 256)


def calm_text_area(light):
    """Draws a veil over the area of the text and holds every pixel there below TEXT_LIGHT."""
    veil = (ramp(VEIL_FROM, VEIL, SIZE[1]) * 90 // 256)[:, None, None]
    light = (light * (256 - veil) + NIGHT * veil) // 256

    held = text_area()
    limit = (TEXT_LIGHT * held + 2 * WHITE * (256 - held)) // 256
    knee = limit * 3 // 4
    present = numpy.maximum(luminance(light), 1)
    above = numpy.maximum(present - knee, 0)
    room = limit - knee
    allowed = numpy.minimum(present, knee) + above * room // (above + room)
    return numpy.minimum(light * allowed[:, :, None] // present[:, :, None], WHITE)


def print_with_grain(light):
    """To 8 bits in sRGB, under a grain that hides the steps of dark gradients."""
    generator = numpy.random.Generator(numpy.random.PCG64(1))
    rows, columns, channels = light.shape
    grain = generator.integers(-150, 151, (rows, columns, 1)) + generator.integers(-150, 151, (rows, columns, 1))
    levels = SRGB_TABLE[light] + 128 + grain
    return Image.fromarray(numpy.clip(levels // 256, 0, 255).astype(numpy.uint8), "RGB")


def srgb(linear):
    return 12.92 * linear if linear <= 0.0031308 else 1.055 * math.pow(linear, 1 / 2.4) - 0.055


# From linear light to 256 times the sRGB level.
SRGB_TABLE = numpy.array([round(srgb(value / WHITE) * 255 * 256) for value in range(WHITE + 1)])
