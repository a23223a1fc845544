"""Reads a recording back with ffprobe and ffmpeg and compares its pictures with the pattern on the screen."""

import json
import subprocess

from stage import SCREEN_WIDTH

READ_LIMIT_S = 60

# The pattern, as pattern.cpp draws it.
COLUMNS = ((255, 0, 0), (0, 255, 0), (0, 0, 255), (255, 255, 0),
           (255, 0, 255), (0, 255, 255), (255, 255, 255), (128, 128, 128))
COLUMN_WIDTH = SCREEN_WIDTH // len(COLUMNS)
COLUMNS_BOTTOM = 360
BAND_COLOUR = (64, 64, 64)
BAND_SAMPLE_Y = 400
COUNTER_TOP, COUNTER_HEIGHT = 600, 120
COUNTER_BITS = 16
BLOCK_WIDTH = SCREEN_WIDTH // COUNTER_BITS

COLOUR_TOLERANCE = 12  # of 255, in the middle of a block of one colour


class Video:
    """A file's facts; reading them decodes every frame, so a damaged one is an error."""

    def __init__(self, path):
        self.path = path
        answer = subprocess.run(
            ["ffprobe", "-v", "error", "-count_frames", "-show_streams", "-show_format", "-of", "json", str(path)],
            capture_output=True, text=True, timeout=READ_LIMIT_S, check=False)
        if answer.returncode != 0:
            raise AssertionError(f"{path} does not play: {answer.stderr}")
        self.complaints = answer.stderr
        facts = json.loads(answer.stdout)
        stream, = facts["streams"]
        self.codec = stream["codec_name"]
        self.size = (stream["width"], stream["height"])
        self.frames = int(stream["nb_read_frames"])
        self.duration_s = float(facts["format"]["duration"])

    def _raw(self, *options):
        return subprocess.run(["ffmpeg", "-v", "error", "-i", str(self.path), *options, "-f", "rawvideo", "-"],
                              capture_output=True, timeout=READ_LIMIT_S, check=True).stdout

    def first_picture(self):
        """A function from (x, y) to the colour (r, g, b) in the first frame."""
        return self.picture(0)

    def picture(self, frame):
        """The same for any frame."""
        pixels = self._raw("-vf", f"select=eq(n\\,{frame})", "-frames:v", "1", "-pix_fmt", "rgb24")
        return self._colours(pixels)

    def picture_at(self, seconds):
        """The same for the frame on show at a moment."""
        before = [time for time in self.frame_times_ms() if time <= seconds * 1000]
        return self.picture(len(before) - 1)

    def _colours(self, pixels):
        width, height = self.size
        assert len(pixels) == width * height * 3
        return lambda x, y: tuple(pixels[(y * width + x) * 3:(y * width + x) * 3 + 3])

    def frame_times_ms(self):
        """When each frame is shown, in milliseconds since the beginning."""
        lines = subprocess.run(
            ["ffprobe", "-v", "error", "-show_entries", "frame=pts_time", "-of", "csv=p=0", str(self.path)],
            capture_output=True, text=True, timeout=READ_LIMIT_S, check=True).stdout.split()
        return [round(float(line.strip(",")) * 1000) for line in lines]

    def counters_of_slots(self, rate):
        """The step number on show in each slot of the frame clock, from the file's beginning to its end."""
        shown = dict(zip(((time * rate + 500) // 1000 for time in self.frame_times_ms()), self.counters()))
        slots = []
        for slot in range(round(self.duration_s * rate)):
            slots.append(shown.get(slot, slots[-1] if slots else None))
        return slots

    def counters(self):
        """The pattern's step number in every frame of a recording of the whole screen."""
        row = self._raw("-vf", f"crop={SCREEN_WIDTH}:2:0:{COUNTER_TOP + COUNTER_HEIGHT // 2}", "-pix_fmt", "gray",
                        "-fps_mode", "passthrough")
        step = SCREEN_WIDTH * 2
        return [_from_gray_code(row[start:start + SCREEN_WIDTH]) for start in range(0, len(row), step)]


def _from_gray_code(row):
    number = 0
    for block in range(COUNTER_BITS):
        bit = row[block * BLOCK_WIDTH + BLOCK_WIDTH // 2] >= 128
        number = number << 1 | (bit ^ (number & 1))
    return number


def expect_colour(case, seen, wanted, where):
    distance = max(abs(a - b) for a, b in zip(seen, wanted))
    case.assertLessEqual(distance, COLOUR_TOLERANCE, f"colour {seen} instead of {wanted} at {where}")


def expect_pattern(case, video, left=0, top=0):
    """Compares the colours at known places with the pattern; left and top are the recorded region's corner."""
    picture = video.first_picture()
    width, height = video.size
    compared = 0
    for column, colour in enumerate(COLUMNS):
        x = column * COLUMN_WIDTH + COLUMN_WIDTH // 2 - left
        if 0 <= x < width:
            expect_colour(case, picture(x, COLUMNS_BOTTOM - 20 - top), colour, f"column {column}")
            expect_colour(case, picture(x, BAND_SAMPLE_Y - top), BAND_COLOUR, f"the band below column {column}")
            compared += 1
    case.assertGreaterEqual(compared, 2)


def expect_edge(case, video, left, top):
    """The border of two columns must lie at its pixel: a recording that is shifted or scaled fails."""
    picture = video.first_picture()
    y = COLUMNS_BOTTOM - 60 - top
    for column in range(1, len(COLUMNS)):
        edge = column * COLUMN_WIDTH - left
        if 16 <= edge < video.size[0] - 16:
            expect_colour(case, picture(edge - 9, y), COLUMNS[column - 1], f"left of edge {column}")
            expect_colour(case, picture(edge + 9, y), COLUMNS[column], f"right of edge {column}")
