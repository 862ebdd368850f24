"""Charts for the pictures of docs/, as SVG."""
import math

FONT = 'font-family="Helvetica,Arial,sans-serif"'
COLOURS = ['#40608f', '#a0701c', '#8f4040', '#4f7f4f']


class Chart:
    """Lines over two logarithmic axes."""
    LEFT, TOP, WIDTH, HEIGHT = 60, 40, 270, 200

    def __init__(self, offset, title, across, up, names=None):
        """`across` and `up`: the values at the lines of the grid; `names`: what stands below instead of the first."""
        self.left = self.LEFT + offset
        self.across, self.up = across, up
        self.lines = [self.text(self.left, self.TOP - 16, title, 'start', 13)]
        for value, name in zip(across, names or [f'{value:,}' for value in across]):
            x = self.x(value)
            self.lines.append(self.line(x, self.TOP, x, self.TOP + self.HEIGHT))
            self.lines.append(self.text(x, self.TOP + self.HEIGHT + 16, name))
        for value in up:
            y = self.y(value)
            self.lines.append(self.line(self.left, y, self.left + self.WIDTH, y))
            self.lines.append(self.text(self.left - 6, y + 4, f'{value:,}' if value > 1 or up[0] < 1 else '≤ 1', 'end'))

    def x(self, value):
        first, last = math.log(self.across[0]), math.log(self.across[-1])
        return self.left + (math.log(value) - first) / (last - first) * self.WIDTH

    def y(self, value):
        first, last = math.log(self.up[0]), math.log(self.up[-1])
        return self.TOP + self.HEIGHT - max(0, math.log(max(value, 1e-9)) - first) / (last - first) * self.HEIGHT

    @staticmethod
    def text(x, y, words, anchor='middle', size=11, colour='black'):
        return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" {FONT} font-size="{size}" '
                f'fill="{colour}">{words}</text>')

    @staticmethod
    def line(x1, y1, x2, y2):
        return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="#b8c4d6" stroke-width="0.5"/>'

    def draw(self, row, colour, words):
        """`row`: of pairs of values, across and up."""
        points = ' '.join(f'{self.x(value):.1f},{self.y(height):.1f}' for value, height in row)
        self.lines.append(f'<polyline points="{points}" fill="none" stroke="{colour}" stroke-width="1.5"/>')
        self.lines += [f'<circle cx="{point.split(",")[0]}" cy="{point.split(",")[1]}" r="2.5" fill="{colour}"/>'
                       for point in points.split()]
        place = self.TOP + self.HEIGHT + 54 + 15 * COLOURS.index(colour)
        self.lines.append(f'<rect x="{self.left}" y="{place - 8}" width="10" height="3" fill="{colour}"/>')
        self.lines.append(self.text(self.left + 16, place - 3, words, 'start'))

    def across_is(self, words):
        self.lines.append(self.text(self.left + self.WIDTH / 2, self.TOP + self.HEIGHT + 33, words))


def svg(left, right):
    """Of two charts."""
    return '\n'.join(['<svg xmlns="http://www.w3.org/2000/svg" width="720pt" height="340pt" viewBox="0 0 720 340">',
                      '<rect width="720" height="340" fill="white"/>', *left.lines, *right.lines, '</svg>'])
