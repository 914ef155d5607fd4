"""The H.264 flags of real video: what x264 writes, before and after, as ffprobe and ffmpeg see it."""

import json
import shutil

import pytest

from conftest import BIN, run, without_user_data

KINDS = {
    "baseline": ["-profile:v", "baseline"],
    "main": ["-profile:v", "main"],
    "high": ["-profile:v", "high"],
    "high422": ["-pix_fmt", "yuv422p"],
    "high444": ["-pix_fmt", "yuv444p"],
    "scaling_matrix": ["-x264-params", "cqm=jvt"],
    "interlaced": ["-x264-params", "tff=1"],
    "hrd": ["-b:v", "500k", "-maxrate", "500k", "-bufsize", "500k", "-x264-params", "nal-hrd=cbr"],
    "colours": ["-color_primaries", "bt709", "-color_trc", "bt709", "-colorspace", "bt709"],
    "extended_sar": ["-vf", "setsar=17/13"],
    "full_range": ["-color_range", "pc"],
    "no_udta": ["-movflags", "+faststart"],
    "odd_rate": ["-r", "30000/1001", "-x264-params", "force-cfr=1"],
}


def stream(path):
    result = run("ffprobe", "-v", "error", "-select_streams", "v", "-show_streams", "-of", "json", path)
    assert result.returncode == 0 and not result.stderr, result.stderr.decode()
    return json.loads(result.stdout)["streams"][0]


def headers(path):
    """Every field of every parameter set in the decoder configuration, as ffmpeg's own parser names it."""
    trace = run("ffmpeg", "-v", "trace", "-i", path, "-map", "0:v", "-c", "copy", "-bsf:v", "trace_headers", "-f", "null", "-")
    lines = [line.split("] ", 1)[-1] for line in trace.stderr.decode(errors="replace").splitlines() if "trace_headers" in line]
    first_packet = next(i for i, line in enumerate(lines) if line.startswith("Packet:"))
    return [line.split(maxsplit=1)[-1] for line in lines[:first_packet] if " = " in line]


def frames(path):
    result = run("ffmpeg", "-v", "error", "-i", path, "-map", "0:v", "-f", "framemd5", "-")
    assert result.returncode == 0 and not result.stderr, result.stderr.decode()
    return [line for line in result.stdout.splitlines() if not line.startswith(b"#")]


@pytest.mark.parametrize("kind", KINDS)
def test_only_the_flags_change(recordings, tmp_path, kind):
    original = recordings.make("video_" + kind, *KINDS[kind], sound=False)
    video = tmp_path / "video.mp4"
    shutil.copy(original, video)
    if kind == "no_udta":
        without_user_data(video)
    before, decoded, fields = stream(original), frames(original), headers(original)
    assert fields
    for wanted, shown in (("on", "pc"), ("off", "tv")):
        result = run(BIN / "pellmor-edit", "full-range", wanted, video)
        assert result.returncode == 0
        after = stream(video)
        assert after["color_range"] == shown
        for changing in ("color_range", "extradata_size", "pix_fmt", "profile"):
            before.pop(changing, None)
            after.pop(changing, None)
        assert after == before
        assert frames(video) == decoded
        changed = {line.split()[0] for line in set(fields) ^ set(headers(video))}
        assert changed <= {
            "constraint_set1_flag", "vui_parameters_present_flag", "video_signal_type_present_flag", "video_format",
            "video_full_range_flag", "colour_description_present_flag", "rbsp_alignment_zero_bit",
        }  # fmt: skip
