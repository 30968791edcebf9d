"""A clock that a program reads off a screen: the milliseconds as a row of black and white blocks."""
import time

from Xlib import X, display

BITS, BLOCK = 16, 16  # the clock comes round after 65 s; the size of a block in pixels
WIDTH, HEIGHT = 2 * BITS * BLOCK, BLOCK
LEFT, BOTTOM = 8, 8  # distances from the edges of the screen


def code(milliseconds):
    """The bits of a Gray code, of which only one changes at a time, followed by their complements."""
    gray = milliseconds ^ milliseconds >> 1
    bits = [gray >> place & 1 for place in reversed(range(BITS))]
    return bits + [1 - bit for bit in bits]


def decode(bits):
    """Decodes the milliseconds; None if the two halves are not complements."""
    if any(bit == opposite for bit, opposite in zip(bits[:BITS], bits[BITS:])):
        return None
    value = 0
    for bit in bits[:BITS]:
        value = value << 1 | (bit ^ value & 1)
    return value


def show(name):
    """Draws the clock 250 times a second until the process ends."""
    connection = display.Display(name)
    screen = connection.screen()
    window = screen.root.create_window(LEFT, screen.height_in_pixels - BOTTOM - HEIGHT, WIDTH, HEIGHT, 0,
                                       screen.root_depth, override_redirect=True)
    window.map()
    picture = window.create_pixmap(WIDTH, HEIGHT, screen.root_depth)
    black = picture.create_gc(foreground=screen.black_pixel)
    white = picture.create_gc(foreground=screen.white_pixel)
    while True:
        bits = code(int(time.monotonic() * 1000) % (1 << BITS))
        picture.fill_rectangle(black, 0, 0, WIDTH, HEIGHT)
        picture.poly_fill_rectangle(white, [(i * BLOCK, 0, BLOCK, BLOCK) for i, bit in enumerate(bits) if bit])
        window.copy_area(white, picture, 0, 0, WIDTH, HEIGHT, 0, 0)  # at once: no capture sees half of it
        connection.sync()
        time.sleep(0.004)


class Screen:
    """Reads an X display."""

    def __init__(self, name):
        self.display = display.Display(name)
        self.screen = self.display.screen()
        self.size = self.screen.width_in_pixels, self.screen.height_in_pixels

    def pixels(self, left=0, top=0, width=None, height=None):
        """A rectangle as bytes: blue, green, red and one unused for each pixel."""
        area = left, top, width or self.size[0], height or self.size[1]
        return self.screen.root.get_image(*area, X.ZPixmap, 0xFFFFFFFF).data

    def clock(self, frame=None):
        """The time that the clock shows on the screen, or in a picture of the whole screen; None if unreadable."""
        top, middle = self.size[1] - BOTTOM - HEIGHT + BLOCK // 2, BLOCK // 2
        if frame is None:
            row = self.pixels(LEFT, top, WIDTH, 1)
        else:
            row = frame[(top * self.size[0] + LEFT) * 4:][:WIDTH * 4]
        return decode([row[(i * BLOCK + middle) * 4 + 1] > 127 for i in range(2 * BITS)])

    def caption(self, text, width, height):
        """A picture of a line of text, which this X server draws."""
        picture = self.screen.root.create_pixmap(width, height, self.screen.root_depth)
        picture.fill_rectangle(picture.create_gc(foreground=self.screen.black_pixel), 0, 0, width, height)
        paint = picture.create_gc(foreground=self.screen.white_pixel, font=self.display.open_font("fixed"))
        picture.draw_text(paint, 8, height - 8, text.encode())
        return picture.get_image(0, 0, width, height, X.ZPixmap, 0xFFFFFFFF).data
