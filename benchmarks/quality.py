"""What the comparisons with other encoders share: how like two videos are, and points of equal likeness."""

import math
import re
import subprocess

RATE = 30


def ssim(video, reference):
    """The mean structural similarity of the brightness of every slot, 0 to 1."""
    graph = (f"[0:v]fps={RATE},settb=1/{RATE},setpts=N,format=yuv420p[a];"
             f"[1:v]fps={RATE},settb=1/{RATE},setpts=N,format=yuv420p[b];[a][b]ssim=eof_action=endall")
    run = subprocess.run(["ffmpeg", "-hide_banner", "-nostdin", "-i", video, "-i", reference, "-lavfi", graph,
                          "-f", "null", "-"], capture_output=True, text=True, check=True)
    return float(re.search(r"SSIM Y:([0-9.]+)", run.stderr)[1])


def decibels(similarity):
    """Similarity on a scale on which rates are nearly straight lines."""
    return -10 * math.log10(max(1 - similarity, 1e-7))


def at(points, similarity, value):
    """The value that an encoder needs for a similarity, between or beyond two of its measured points."""
    wanted = decibels(similarity)
    points = sorted(points, key=lambda point: point["ssim"])
    below = [point for point in points if decibels(point["ssim"]) <= wanted] or points[:1]
    low = below[-1]
    above = [point for point in points if point["ssim"] > low["ssim"]]
    if above:
        high = above[0]
    else:
        low, high = points[-2:]
    span = decibels(high["ssim"]) - decibels(low["ssim"])
    part = (wanted - decibels(low["ssim"])) / span if span else 0
    return math.exp(math.log(low[value]) + part * (math.log(high[value]) - math.log(low[value])))
