"""Packets made by ffmpeg's encoders, for the worker's file writers: pictures with a number in them, and a tone."""

import json
import pathlib
import re
import struct
import subprocess

from stage import WINE_RUN

LIMIT_S = 60
TICKS_PER_SECOND = 10_000_000  # the worker's unit of time

WIDTH = 320
HEIGHT = 180
BITS = 8  # of the number, each a column of black or white
SOUND_RATE = 48_000


def seconds(value):
    """A time in the worker's unit."""
    return round(value * TICKS_PER_SECOND)


def _pictures(count):
    """Raw pictures in gray: each shows its number."""
    for number in range(count):
        row = b"".join((b"\xff" if number >> (BITS - 1 - bit) & 1 else b"\0") * (WIDTH // BITS) for bit in range(BITS))
        yield row * HEIGHT


def numbers_in(path, may_complain=False):
    """The number in every picture that ffmpeg shows, in order; a warning is an error unless the file is a torn one."""
    command = ["ffmpeg", "-v", "warning", "-i", str(path), "-map", "0:v", "-vf", f"crop={WIDTH}:2:0:{HEIGHT // 2}",
               "-pix_fmt", "gray", "-fps_mode", "passthrough", "-f", "rawvideo", "-"]
    answer = subprocess.run(command, capture_output=True, timeout=LIMIT_S, check=True)
    if answer.stderr and not may_complain:
        raise AssertionError(f"{path}: {answer.stderr.decode()}")
    rows = answer.stdout
    return [_number(rows[start:start + WIDTH]) for start in range(0, len(rows), 2 * WIDTH)]


class Probe:
    """What ffprobe says of a file."""

    def __init__(self, path):
        answer = subprocess.run(["ffprobe", "-v", "warning", "-show_streams", "-show_format", "-show_packets",
                                 "-of", "json", str(path)], capture_output=True, text=True, timeout=LIMIT_S, check=True)
        facts = json.loads(answer.stdout)
        picture = facts["streams"][0]
        self.complaints = answer.stderr
        self.codecs = [stream["codec_name"] for stream in facts["streams"]]
        self.size = (picture["width"], picture["height"])
        self.duration_s = float(facts["format"]["duration"])
        self.times_s = [float(packet["pts_time"]) for packet in facts["packets"] if packet["stream_index"] == 0]


def _number(row):
    step = WIDTH // BITS
    return sum((row[bit * step + step // 2] >= 128) << (BITS - 1 - bit) for bit in range(BITS))


class Writes:
    """Every write of a file, from the log that filewriter.exe keeps."""

    def __init__(self, path):
        log = path.with_name(path.name + ".log").read_bytes()
        self._writes = []
        at = 0
        while at < len(log):
            offset, size = struct.unpack_from("<QQ", log, at)
            self._writes.append((offset, log[at + 16:at + 16 + size]))
            at += 16 + size
        self.total = sum(len(data) for _, data in self._writes)

    def file(self, count):
        """The file as it was when so many bytes had been written."""
        content = bytearray()
        for offset, data in self._writes:
            data = data[:count]
            content[offset:offset + len(data)] = data
            count -= len(data)
        return bytes(content)


class Packets:
    """The packets of one stream, and what its decoder must know."""

    def __init__(self, path, stream, config):
        answer = subprocess.run(["ffprobe", "-v", "error", "-select_streams", stream, "-show_packets", "-show_streams",
                                 "-show_data", "-of", "json", str(path)],
                                capture_output=True, text=True, timeout=LIMIT_S, check=True)
        facts = json.loads(answer.stdout)
        content = path.read_bytes()
        self.packets = []
        for packet in facts["packets"]:
            begin, size = int(packet["pos"]), int(packet["size"])
            self.packets.append((packet["flags"].startswith("K"), content[begin:begin + size]))
        self.config = config(content, facts["streams"][0])


def _box(name, skipped):
    def find(content, _stream):
        start = content.index(name) + len(name)
        size = int.from_bytes(content[start - 8:start - 4], "big")
        return content[start + skipped:start - 8 + size]
    return find


def _extradata(_content, stream):
    lines = stream["extradata"].strip().splitlines()
    return bytes.fromhex("".join(re.sub(r"^[0-9a-f]+: ", "", line).split("  ")[0].replace(" ", "") for line in lines))


class Material:
    """Pictures and sound, encoded once for all the files of a test."""

    PICTURES = {
        "h264": (["-c:v", "libx264", "-preset", "veryfast", "-bf", "0", "-g", "30", "-tune", "zerolatency"],
                 _box(b"avcC", 0)),
        "vp9": (["-c:v", "libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8", "-g", "30", "-auto-alt-ref", "0",
                 "-lag-in-frames", "0"], _box(b"vpcC", 4)),
    }
    SOUNDS = {
        "aac": (["-c:a", "aac"], _extradata, 1024, 1024),
        "opus": (["-c:a", "libopus"], _extradata, 960, 312),
    }

    def __init__(self, folder, count, rate):
        self.rate = rate
        self._streams = {}
        for name, (options, config) in self.PICTURES.items():
            path = folder / f"{name}.mp4"
            command = ["ffmpeg", "-v", "error", "-y", "-f", "rawvideo", "-pix_fmt", "gray", "-s", f"{WIDTH}x{HEIGHT}",
                       "-r", str(rate), "-i", "-", "-pix_fmt", "yuv420p", *options, str(path)]
            subprocess.run(command, input=b"".join(_pictures(count)), timeout=LIMIT_S, check=True)
            self._streams[name] = Packets(path, "v", config)
        for name, (options, config, _, _) in self.SOUNDS.items():
            path = folder / f"{name}.mp4"
            command = ["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
                       f"sine=440:sample_rate={SOUND_RATE}:duration={count / rate}", "-ac", "2", *options, str(path)]
            subprocess.run(command, timeout=LIMIT_S, check=True)
            self._streams[name] = Packets(path, "a", config)

    def of(self, name):
        return self._streams[name]


class Recording:
    """A script for filewriter.exe: what is recorded when."""

    def __init__(self, material, picture, sound=None, start=0.0):
        self._material = material
        self._lines = []
        self._data = bytearray()
        self._picture = material.of(picture)
        self._lines.append(f"picture {picture} {WIDTH} {HEIGHT} {material.rate} bt601 {self._picture.config.hex()}")
        self._sound = []
        if sound is not None:
            _, _, samples, delay = Material.SOUNDS[sound]
            config = material.of(sound).config
            self._lines.append(f"sound {sound} {SOUND_RATE} 2 {samples} {delay} {config.hex()}")
            self._sound = [((index * samples - delay) / SOUND_RATE, data)
                           for index, (_, data) in enumerate(material.of(sound).packets)]
        self._lines.append(f"open {seconds(start)}")

    def _add(self, stream, is_key, time_s, data):
        self._lines.append(f"packet {stream} {int(is_key)} {seconds(time_s)} {len(data)}")
        self._data += data

    def picture(self, number, time_s):
        """Adds the sound until this moment, and then the picture with this number."""
        while self._sound and self._sound[0][0] <= time_s:
            self._add("sound", True, *self._sound.pop(0))
        self._add("picture", *((self._picture.packets[number][0], time_s, self._picture.packets[number][1])))
        return self

    def pictures(self, first, last, rate=None):
        """Adds the pictures first to last (not included) in their slots."""
        for number in range(first, last):
            self.picture(number, number / (rate or self._material.rate))
        return self

    def flush(self, until_s):
        self._lines.append(f"flush {seconds(until_s)}")
        return self

    def finish(self, end_s):
        self._lines.append(f"finish {seconds(end_s)}")
        return self

    def write(self, program, path, environment):
        script, data = path.with_suffix(".script"), path.with_suffix(".packets")
        script.write_text("\n".join(self._lines) + "\n")
        data.write_bytes(self._data)
        wine_paths = ["Z:" + str(pathlib.Path(file).resolve()).replace("/", "\\") for file in (script, data, path)]
        subprocess.run([WINE_RUN, program, *wine_paths], env=environment, timeout=LIMIT_S, check=True)
        return path
