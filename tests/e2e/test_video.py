# SPDX-License-Identifier: MIT
"""The H.264 flags of real video: what x264 writes, before and after, as ffprobe and ffmpeg see it."""

import shutil

import pytest

from conftest import edit, probe, run, without_user_data

KINDS = {
    "high": ["-profile:v", "high"],
    "interlaced": ["-x264-params", "tff=1"],
    "hrd": ["-b:v", "500k", "-maxrate", "500k", "-bufsize", "500k", "-x264-params", "nal-hrd=cbr"],
    "colours": ["-color_primaries", "bt709", "-color_trc", "bt709", "-colorspace", "bt709"],
    "no_udta": ["-movflags", "+faststart"],
}


def frames(path):
    result = run("ffmpeg", "-v", "error", "-i", path, "-map", "0:v", "-f", "framemd5", "-")
    assert result.returncode == 0 and not result.stderr, result.stderr.decode()
    return [line for line in result.stdout.splitlines() if not line.startswith(b"#")]


@pytest.mark.parametrize("kind", KINDS)
def test_only_the_flags_change(recordings, tmp_path, kind):
    video = shutil.copy(recordings.make("video_" + kind, *KINDS[kind], sound=False), tmp_path / "video.mp4")
    if kind == "no_udta":
        without_user_data(video)
    before, decoded = probe(video), frames(video)
    for wanted, shown in (("on", "pc"), ("off", "tv")):
        edit("full-range", wanted, video)
        after = probe(video)
        assert after["streams"][0]["color_range"] == shown
        for changing in ("color_range", "extradata_size", "pix_fmt", "profile"):
            before["streams"][0].pop(changing, None)
            after["streams"][0].pop(changing, None)
        assert after == before and ("encoder" in after["format"]["tags"]) == (kind != "no_udta")
        assert frames(video) == decoded
