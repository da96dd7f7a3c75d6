"""The farm on real processes: the program's bits whatever the cluster, and every frame that a fault leaves."""

import json
import os
import pathlib
import resource
import shutil
import signal
import socket
import subprocess
import sys
import time

import numpy as np
import pytest

import qn_sds

distributed = pytest.importorskip("distributed", reason="python3-distributed is not installed")
dask = pytest.importorskip("dask")

from conftest import KNOT, random_rays  # noqa: E402
from qn_sds.farm import frames as farm_frames  # noqa: E402
from qn_sds.farm import notes  # noqa: E402
from qn_sds.farm.renderer import Refused, Renderer, find_program  # noqa: E402

ASSETS = KNOT.parent
PROGRAM = os.environ.get("SDS") or find_program()
SIZE = "--width 200 --height 150 --samples 4".split()
SLOW = "--width 160 --height 120 --samples 512".split()  # some four seconds on two cores
PATIENCE = 6


def sds_render(*words, folder):
    subprocess.run([PROGRAM, "render", *words, "-q"], cwd=folder, check=True)


def start_farm(folder, *words, **options):
    command = [sys.executable, "-m", "qn_sds.farm", "--program", PROGRAM, "--report", "report.json", *words]
    return subprocess.Popen(command, cwd=folder, stderr=subprocess.PIPE, text=True, process_group=0, **options)


def end_farm(process, code=0):
    said = process.communicate(timeout=150)[1]
    assert process.returncode == code, said
    return said


def farm(folder, *words, code=0, **options):
    return end_farm(start_farm(folder, *words, **options), code)


def read_report(folder):
    return json.loads((folder / "report.json").read_text())


def without_note(path):
    """The bytes of a PNG as the program alone writes them."""
    data = path.read_bytes()
    place = data.find(b"tEXtqn_sds\0")
    size = int.from_bytes(data[place - 4:place], "big")
    return data[:place - 4] + data[place + 8 + size:]


def wait_for(condition, process, seconds=60):
    end = time.monotonic() + seconds
    while not condition():
        assert process.poll() is None, process.communicate()[1]
        assert time.monotonic() < end
        time.sleep(0.02)


def renderers_below(process):
    """Ids of the renderers by those of the processes that started them, all of which descend from a process."""
    found = {}
    for thread in pathlib.Path(f"/proc/{process}/task").glob("*"):
        try:
            children = (thread / "children").read_text().split()
            for child in children:
                if "serve" in pathlib.Path(f"/proc/{child}/cmdline").read_text().split("\0"):
                    found[process] = int(child)
                else:
                    found |= renderers_below(child)
        except OSError:
            pass  # it has just ended
    return found


def renderers(cluster):
    found = {}
    for nanny in cluster.workers.values():
        found |= renderers_below(nanny.pid)
    return found


@pytest.fixture(scope="module")
def cluster():
    with dask.config.set({"distributed.scheduler.worker-ttl": f"{PATIENCE}s"}):
        with distributed.LocalCluster(n_workers=2, threads_per_worker=1, memory_limit=0, dashboard_address="127.0.0.1:0",
                                      silence_logs=50) as standing:
            yield standing


PICTURES = {
    "layers.exr": ["knot.obj", "--wire", "--aov", "N,P,uv,id,Z,st,color,lines"],
    "blur.exr": ["knot.obj", "--motion", "next.obj", "--sun", "30", "40"],
    "scene.exr": ["lantern.usda", "--frame", "2"],
    "sheet.png": ["seams.obj", "--turntable", "5", "--aov", "N,id", "--checker"],
    "flat.jpg": ["knot.obj", "--level", "3"],
}


@pytest.fixture
def scenes(tmp_path):
    for asset in ASSETS.iterdir():
        shutil.copy(asset, tmp_path)
    lines = KNOT.read_text().splitlines()
    moved = [f"v {float(x[0]) + 0.2} {x[1]} {x[2]}" if line.startswith("v ") and (x := line.split()[1:]) else line
             for line in lines]
    (tmp_path / "next.obj").write_text("\n".join(moved))
    return tmp_path


@pytest.mark.parametrize("name", PICTURES)
def test_any_tiles_in_any_order_make_the_picture(name, scenes, monkeypatch):
    monkeypatch.chdir(scenes)
    words = [*SIZE, *PICTURES[name], "-o"]
    sds_render(*words, name, folder=scenes)
    renderer = Renderer(PROGRAM)
    check = renderer.ask("check", arguments=[*words, "farm." + name])[0]
    renderer.ask("open", scene="s", arguments=[*words, "farm." + name], folder=str(scenes), places={}, threads=2)
    todo = np.random.default_rng(3).permutation(check["tiles"]).tolist()
    parts = []
    for size in (1, 7, 2, 11, 1000):
        tiles, todo = todo[:size], todo[size:]
        answer, pixels = renderer.ask("render", scene="s", tiles=tiles)
        parts.append((tiles, pixels))
    for note in ("", notes.make_note("1", {}, {"a": "b"})):
        renderer.ask("write", arguments=[*words, "farm." + name], note=note, channels=answer["channels"],
                     parts=[tiles for tiles, _ in parts], content=[pixels for _, pixels in parts])
        for output in check["files"]:
            if not note:
                assert pathlib.Path(output).read_bytes() == pathlib.Path(output[5:]).read_bytes(), output
            assert (notes.read_note(output) or "") == note
    for what, rest in (("bake", {}), ("write", {"arguments": words + ["a.png"], "note": "", "channels": [], "parts": []}),
                       ("render", {"scene": "s", "tiles": "all"})):
        with pytest.raises(Refused):
            renderer.ask(what, **rest)
    renderer.close()


def test_the_instruction_sets_of_workers_do_not_matter(scenes):
    """The processors that the kernels' tables are for, emulated, with what else the libraries choose by them."""
    emulator = shutil.which("qemu-x86_64-static")
    if emulator is None or os.uname().machine != "x86_64":
        pytest.skip("needs qemu-x86_64-static")
    found = []
    for processor in (None, "Nehalem", "Haswell"):
        program = scenes / "sds_on"
        prefix = f"{emulator} -cpu {processor} " if processor else ""
        program.write_text(f'#!/bin/sh\nexec {prefix}{PROGRAM} "$@" 2>/dev/null\n')
        program.chmod(0o755)
        renderer = Renderer(str(program))
        parts = []
        for words in list(PICTURES.values())[:4]:
            renderer.ask("open", scene="s", arguments=[*words, "-o", "a.exr", "--width", "96", "--height", "64",
                                                       "--samples", "2"], folder=str(scenes), places={}, threads=1)
            parts.append(renderer.ask("render", scene="s", tiles=[0, 1, 2, 3])[1])
        renderer.close()
        found.append(parts)
    assert found[0] == found[1] == found[2]


def test_the_same_bits_with_any_number_of_workers_and_any_tasks(cluster, scenes):
    for place in scenes.glob("*.obj"):  # which is nowhere on the workers: it comes with the tasks
        place.write_text("mtllib a.mtl\nusemtl red\n" + place.read_text())
    (scenes / "a.mtl").write_text("newmtl red\nKd 0.8 0.1 0.1\n")
    sds_render("/proc/self/cwd/knot.obj", *SIZE, "-o", "alone.png", folder=scenes)
    whole = (scenes / "alone.png").read_bytes()
    for i, words in enumerate((["--workers", "1"], ["--workers", "3", "--task-tiles", "3"],
                               ["--scheduler", cluster.scheduler_address, "--task-tiles", "1"])):
        farm(scenes, "/proc/self/cwd/knot.obj", *SIZE, "-o", f"{i}.png", *words)
        assert without_note(scenes / f"{i}.png") == whole
        report = read_report(scenes)
        assert sorted(tile for task in report["tasks"] for tile in task["tiles"]) == list(range(35))
        # Once however many tasks, and again once the client knows of a.mtl.
        assert all(worker["opened"] <= 2 for worker in report["workers"].values())
    assert sum(worker["tasks"] for worker in report["workers"].values()) == 35
    assert report["frames"][0]["made_of"].keys() == {"/proc/self/cwd/knot.obj", "/proc/self/cwd/a.mtl"}


def test_a_broken_mesh_costs_its_frame_and_a_second_run_makes_what_is_missing(cluster, tmp_path):
    words = ["cage.####.obj", "--frames", "1-40", "-o", "out.####.png", "--width", "64", "--height", "48", "--samples",
             "1", "--scheduler", cluster.scheduler_address]
    for number in range(1, 41):
        shutil.copy(KNOT, tmp_path / f"cage.{number:04}.obj")
    (tmp_path / "cage.0017.obj").write_text("v 0 0 0\nf 1 2 3\n")
    said = farm(tmp_path, *words, code=1)
    assert "1 of 40 frames failed: frame 17: cage.0017.obj" in said and "cage.0017.obj:2" in said
    made = {path: path.stat().st_mtime_ns for path in tmp_path.glob("out.*")}
    assert len(made) == 39 and tmp_path / "out.0017.png" not in made
    assert all(farm_frames.put_number("out.####.png", i) == f"out.{i:04}.png" for i in (1, 40))

    shutil.copy(KNOT, tmp_path / "cage.0017.obj")
    (tmp_path / "cage.0023.obj").write_text(KNOT.read_text() + "# changed\n")
    shutil.copy(tmp_path / "out.0001.png", tmp_path / "out.0030.png")  # of another frame
    (tmp_path / "out.0031.png").write_bytes((tmp_path / "out.0031.png").read_bytes()[:60])
    farm(tmp_path, *words)
    states = {frame["frame"]: frame["state"] for frame in read_report(tmp_path)["frames"]}
    assert {number for number, state in states.items() if state == "done"} == {17, 23, 30, 31}
    farm(tmp_path, *words, "--wire")
    assert all(frame["state"] == "done" for frame in read_report(tmp_path)["frames"])


def test_killed_and_frozen_workers_and_renderers(cluster, scenes):
    words = ["knot.obj", *SLOW, "--task-tiles", "1"]
    sds_render(*words[:-2], "-o", "alone.png", folder=scenes)
    process = start_farm(scenes, *words, "-o", "farm.png", "--scheduler", cluster.scheduler_address, "--patience",
                         str(PATIENCE))
    wait_for(lambda: len(renderers(cluster)) == 2, process)
    worker, renderer = list(renderers(cluster).items())[0]
    os.kill(worker, signal.SIGKILL)
    wait_for(lambda: not pathlib.Path(f"/proc/{renderer}").exists(), process)  # it does not outlive its worker
    wait_for(lambda: len(renderers(cluster)) == 2 and worker not in renderers(cluster), process)
    os.kill(list(renderers(cluster).values())[0], signal.SIGSTOP)
    frozen = list(renderers(cluster))[1]
    time.sleep(0.3)
    os.kill(frozen, signal.SIGSTOP)
    try:
        end_farm(process)
    finally:
        if pathlib.Path(f"/proc/{frozen}").exists():
            os.kill(frozen, signal.SIGCONT)
    assert without_note(scenes / "farm.png") == (scenes / "alone.png").read_bytes()


def test_a_scheduler_that_is_restarted(scenes):
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        address = f"tcp://127.0.0.1:{free.getsockname()[1]}"

    def start(module, *words):
        return subprocess.Popen([sys.executable, "-m", f"distributed.cli.{module}", *words], cwd=scenes,
                                stderr=subprocess.DEVNULL, stdout=subprocess.DEVNULL, process_group=0)

    def start_cluster():
        return (start("dask_scheduler", "--host", address, "--no-dashboard"),
                start("dask_worker", address, "--nthreads", "2", "--no-dashboard"))

    def stop_cluster(processes):
        for each in processes:
            os.killpg(each.pid, signal.SIGKILL)
            each.wait()

    words = ["knot.obj", *SLOW, "--task-tiles", "1"]
    sds_render(*words[:-2], "-o", "alone.png", folder=scenes)
    first = start_cluster()
    process = start_farm(scenes, *words, "-o", "farm.png", "--scheduler", address, "--patience", "60")
    wait_for(lambda: renderers_below(first[1].pid), process)
    stop_cluster(first)
    second = start_cluster()
    try:
        end_farm(process)
        assert without_note(scenes / "farm.png") == (scenes / "alone.png").read_bytes()
    finally:
        stop_cluster(second)


def test_a_full_disk_and_an_interrupt_leave_whole_frames(cluster, tmp_path):
    standing = ["--scheduler", cluster.scheduler_address]
    for number in range(1, 5):
        shutil.copy(KNOT if number == 3 else ASSETS / "sheet.obj", tmp_path / f"cage.{number}.obj")
    words = ["cage.##.obj", "-o", "out.##.png", "--frames", "1-4", "--width", "256", "--height", "192"]
    for path in tmp_path.glob("cage.*"):
        path.rename(tmp_path / path.name.replace("cage.", "cage.0"))
    whole = farm(tmp_path, *words, *standing)
    sizes = {path.name: path.stat().st_size for path in tmp_path.glob("out.*")}
    assert len(sizes) == 4, whole
    limit = (sizes["out.03.png"] + max(size for name, size in sizes.items() if name != "out.03.png")) // 2
    assert limit < sizes["out.03.png"]
    for path in tmp_path.glob("out.*"):
        path.unlink()

    said = farm(tmp_path, *words, *standing, code=1,
                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
    assert "1 of 4 frames failed: frame 3: out.03.png: File too large" in said
    there = {"report.json", *(f"cage.0{i}.obj" for i in range(1, 5)), "out.01.png", "out.02.png", "out.04.png"}
    assert {path.name for path in tmp_path.iterdir()} == there

    # A cluster of its own: the interrupt goes to all of the terminal's processes.
    process = start_farm(tmp_path, *words[:-4], *SLOW, "--frames", "1-4", "--workers", "2", "--wire")
    wait_for(lambda: any(notes.read_note(path) and "--wire" in notes.read_note(path)
                         for path in tmp_path.glob("out.*")), process)
    os.killpg(process.pid, signal.SIGINT)
    said = end_farm(process, 130)
    assert "interrupted" in said and "Traceback" not in said
    for path in tmp_path.iterdir():
        assert path.name in {*there, "out.03.png"}
        if path.suffix == ".png":
            assert path.read_bytes().endswith(b"IEND\xaeB`\x82")


def test_tls_is_passed_through(scenes):
    if shutil.which("openssl") is None:
        pytest.skip("needs openssl")
    subprocess.run("openssl req -x509 -newkey rsa:2048 -nodes -subj /CN=farm -days 2 -keyout key.pem -out cert.pem",
                   shell=True, cwd=scenes, check=True, capture_output=True)
    own = {f"tls_{role}_{what}": str(scenes / f"{what}.pem") for role in ("scheduler", "worker", "client")
           for what in ("cert", "key")}
    security = distributed.Security(tls_ca_file=str(scenes / "cert.pem"), require_encryption=True, **own)
    with distributed.LocalCluster(n_workers=1, threads_per_worker=1, security=security, protocol="tls://",
                                  dashboard_address="127.0.0.1:0", memory_limit=0, silence_logs=50) as cluster:
        words = ["knot.obj", *SIZE, "-o", "a.png", "--patience", "5", "--scheduler", cluster.scheduler_address]
        farm(scenes, *words, code=1)  # without a certificate
        farm(scenes, *words, "--tls-ca-file", "cert.pem", "--tls-cert", "cert.pem", "--tls-key", "key.pem")


def test_wrong_words_are_refused_before_anything_is_begun(tmp_path):
    shutil.copy(KNOT, tmp_path)
    (tmp_path / "none").mkdir()
    (tmp_path / "none/distributed.py").write_text("raise ImportError")
    for words, code, reason in (
        (["knot.obj", "-o", "a.png", "--framse", "1"], 2, "there is no option --framse"),
        (["knot.obj", "-o", "a.png", "--frames", "1-"], 2, "--frames: '1-' is no frame"),
        (["knot.obj", "-o", "a.png", "--frames", "1-2"], 2, "a.png is that of several frames"),
        (["knot.##.obj", "-o", "a.##.png"], 2, "--frames says which"),
        (["knot.obj", "-o", "a.gif"], 2, "ends neither with"),
        (["knot.obj", "-o", "-"], 2, "the farm writes files"),
        (["knot.obj", "-o", "nowhere/a.png"], 1, "nowhere/a.png: No such file"),
        (["knot.obj", "-o", "a.png", "--workers", "2", "--scheduler", "tcp://x:1"], 2, "--workers"),
        (["knot.obj", "-o", "a.png", "--patience", "1", "--scheduler", "tcp://127.0.0.1:1"], 1, "no scheduler answers"),
    ):
        said = farm(tmp_path, *words, code=code)
        assert reason in said and "Traceback" not in said
    said = farm(tmp_path, "knot.obj", "-o", "a.png", code=1,
                env={**os.environ, "PYTHONPATH": f"{tmp_path}/none:{os.environ['PYTHONPATH']}"})
    assert "apt-get install python3-distributed" in said
    assert farm_frames.parse_frames("3,7-13x3,-2--1") == [-2, -1, 3, 7, 10, 13]


def test_arrays_by_chunks(cluster):
    import dask.array as da

    import qn_sds.dask as lazily

    surface = qn_sds.load_obj(ASSETS / "seams.obj")
    rays = np.concatenate(random_rays(surface, 3000, 1), axis=1)
    hits = lazily.intersect(surface, da.from_array(rays, chunks=(700, 4)))
    places = lazily.places(hits)
    limits = np.array([[1.0, np.inf], [0.0, 2.0]]).repeat(1500, axis=0)
    lazy = (hits, lazily.limit_points(surface, places), lazily.uv(surface, places, map=0),
            lazily.intersect(surface, np.concatenate([rays, limits], axis=1), level=2))
    direct = surface.intersect(rays[:, :3], rays[:, 3:])
    expected = (direct, surface.limit_points(direct.primitive, direct.uv), surface.uv(direct.primitive, direct.uv),
                surface.intersect(rays[:, :3], rays[:, 3:], 2, tnear=limits[:, 0], tfar=limits[:, 1]))
    with distributed.Client(cluster, set_as_default=False) as client:
        futures = client.compute(lazy)
        got = client.gather(futures)
    for record, wanted in zip(got, expected):
        assert type(record) is type(wanted)
        for name, one, other in zip(record._fields, record, wanted):
            assert one.dtype == other.dtype and np.array_equal(one, other, equal_nan=True), name
    with pytest.raises(ValueError, match="expected"):
        lazily.limit_points(surface, rays)
