"""The command line of the farm."""

import argparse
import os
import signal
import sys
from multiprocessing import forkserver

from .frames import Frame, has_number, parse_frames, put_number
from .renderer import Refused, Renderer, RendererGone, find_program
from .watcher import Watcher

NAME = "qn_sds.farm"
FIRST_PATIENCE = 20.0  # seconds for a scheduler that has not answered yet: its address may be wrong
FAILED, WRONG_USAGE, SIGNALLED = 1, 2, 128  # as the program has them


class Stopped(Exception):
    """The run ends here: what to say and the exit code."""

    def __init__(self, text, code):
        super().__init__(text)
        self.code = code


class Interrupted(BaseException):
    """By a signal."""


class Parser(argparse.ArgumentParser):
    def error(self, message):
        raise Stopped(message, WRONG_USAGE)


def make_parser():
    parser = Parser(
        prog="python3 -m qn_sds.farm", usage="%(prog)s SCENE... -o FILE [--frames LIST] [options]", allow_abbrev=False,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        description="Renders pictures and sequences on many workers, through Dask: what sds render makes, bit for bit.",
        epilog="Every option of sds render is one of these as well; sds render --help tells them. In all of them ####\n"
        "is the number of the frame. Run again, it renders only what is missing or not up to date.\n\nExamples:\n"
        "  python3 -m qn_sds.farm cage.obj -o picture.png\n"
        "  python3 -m qn_sds.farm cage.####.obj --frames 1-240 -o out.####.exr\n"
        "  python3 -m qn_sds.farm scene.usda --frames 1-240 -o out.####.exr --scheduler tcp://host:8786\n\n"
        "Exit codes: 0 done, 1 some frame failed, 2 wrong usage, 130 interrupted.")
    parser.add_argument("--frames", metavar="LIST", help="1-240, 1-240x2, 3,7,20-24; of a scene the frames' time codes")
    parser.add_argument("--scheduler", metavar="ADDRESS",
                        help="of a cluster that stands, such as tcp://host:8786; by default one for this run, with a "
                        "process per core")
    parser.add_argument("--workers", metavar="N", type=int, help="processes of the cluster for this run")
    parser.add_argument("--dashboard", action="store_true", help="print the address of Dask's dashboard")
    parser.add_argument("--report", metavar="FILE", help="write times per frame, task and worker, as JSON")
    parser.add_argument("--task-tiles", metavar="N", type=int,
                        help="tiles of 32 x 32 pixels per task; by default as many as take 1 to 5 seconds, as measured")
    parser.add_argument("--patience", metavar="SECONDS", type=float, default=300.0,
                        help="after which a renderer that does not answer is ended and its task given to another, and "
                        "a cluster that does not answer is given up; 300 by default")
    parser.add_argument("--program", metavar="FILE",
                        help="sds, here and on the workers; found beside the package or in PATH by default")
    for name, what in (("ca-file", "authority that the scheduler's certificate is from"), ("cert", "own certificate"),
                       ("key", "own key")):
        parser.add_argument(f"--tls-{name}", metavar="FILE", help=f"{what}, PEM; of a scheduler at tls://host:port")
    return parser


def parse(words):
    options, rest = make_parser().parse_known_args(words)
    for name in ("workers", "task_tiles", "patience"):
        value = getattr(options, name)
        if value is not None and not value > 0:
            raise Stopped(f"--{name.replace('_', '-')}: {value:g} is not above 0", WRONG_USAGE)
    tls = [options.tls_ca_file, options.tls_cert, options.tls_key]
    if any(tls) and (not all(tls) or not options.scheduler):
        raise Stopped("--tls-ca-file, --tls-cert, --tls-key and --scheduler belong together", WRONG_USAGE)
    if options.workers and options.scheduler:
        raise Stopped("--workers: the cluster of --scheduler has its own", WRONG_USAGE)
    return options, rest


def make_frames(options, rest, renderer):
    """Every frame, its command line checked by the program itself."""
    try:
        numbers = parse_frames(options.frames) if options.frames else [None]
    except ValueError as error:
        raise Stopped(str(error), WRONG_USAGE) from None
    if options.frames is None and has_number(rest):
        raise Stopped("a name with ## is one of many frames; --frames says which", WRONG_USAGE)
    frames, outputs = [], {}
    for number in numbers:
        words = rest if number is None else [put_number(word, number) for word in rest]
        try:
            check = renderer.ask("check", arguments=words)[0]
            if number is not None and check["is_layer"] and "--frame" not in check["given"]:
                words = [*words, "--frame", str(number)]
                check = renderer.ask("check", arguments=words)[0]
        except Refused as error:
            raise Stopped(str(error), error.code) from None
        if "-" in check["meshes"]:
            raise Stopped("MESH: the farm reads files, not standard input", WRONG_USAGE)
        frames.append(Frame(number, words, check))
        for output in check["files"]:
            if outputs.setdefault(os.path.abspath(output), number) != number:
                raise Stopped(f"--output: {output} is that of several frames; #### is the frame's number", WRONG_USAGE)
    return frames, check["quiet"]


class Cluster:
    """The one that stands, or one for this run: a process per core, with one renderer of one thread each."""

    def __init__(self, options, say):
        self._options, self._say = options, say
        self._own = self._security = None
        self._timeout = min(FIRST_PATIENCE, options.patience)

    def connect(self):
        """A new client."""
        from distributed import Client, Security

        from .driver import NoCluster

        options = self._options
        if options.tls_key:
            self._security = Security(tls_ca_file=options.tls_ca_file, tls_client_cert=options.tls_cert,
                                      tls_client_key=options.tls_key, require_encryption=True)
        if self._own is None and not options.scheduler:
            self._start()
        try:
            client = Client(self._own or options.scheduler, security=self._security, timeout=self._timeout,
                            set_as_default=False)
        except (OSError, TimeoutError, ValueError) as error:
            raise NoCluster(f"{options.scheduler}: no scheduler answers: {error}") from None
        self._timeout = options.patience
        if options.dashboard:
            self._say(f"dashboard: {client.dashboard_link}")
        return client

    def close(self):
        if self._own is not None:
            self._own.close()

    def _start(self):
        import dask
        from distributed import LocalCluster

        dask.config.set({"distributed.scheduler.worker-ttl": f"{self._options.patience:g}s",
                         "distributed.worker.profile.interval": "1s", "distributed.admin.tick.limit": "1h"})
        # The renderers' memory is not the workers' own, which is all that a limit would see.
        count = self._options.workers or len(os.sched_getaffinity(0))
        # Ctrl-C reaches the workers too and is for the farm, which ends them: they inherit that it is ignored.
        former = signal.signal(signal.SIGINT, signal.SIG_IGN)
        forkserver.ensure_running()
        signal.signal(signal.SIGINT, former)
        self._own = LocalCluster(n_workers=count, threads_per_worker=1, memory_limit=0, silence_logs=50,
                                 dashboard_address="127.0.0.1:0",
                                 scheduler_kwargs={"dashboard": self._options.dashboard})


def render(options, rest, watcher_of):
    program = find_program(options.program)
    renderer = Renderer(program)
    try:
        frames, is_quiet = make_frames(options, rest, renderer)
        version = renderer.version
    finally:
        renderer.close()
    watcher = watcher_of(is_quiet)
    from .driver import Driver, NoCluster, WriterPool

    job = {"folder": os.getcwd(), "version": version, "program": options.program, "patience": options.patience}
    cluster, code = Cluster(options, watcher.say), FAILED
    writers = WriterPool(program, max(1, min(4, (os.cpu_count() or 1) // 2)))
    try:
        driver = Driver(frames, cluster.connect, job, writers, watcher, options.task_tiles)
        driver.run()
        code = FAILED if any(frame.state == "failed" for frame in frames) else 0
    except NoCluster as error:
        for frame in frames:
            if not frame.is_over:
                frame.state, frame.finding = "failed", [str(error)]
    except Interrupted as error:
        code = SIGNALLED + error.args[0]
    finally:
        signal.signal(signal.SIGINT, signal.SIG_IGN)
        writers.close()
        cluster.close()
        watcher.close()
    finish(options, frames, watcher, code)
    return code


def finish(options, frames, watcher, code):
    if options.report:
        watcher.write_report(options.report, frames, code)
    failed = [frame for frame in frames if frame.state == "failed"]
    if failed:
        watcher.say(f"{NAME}: {len(failed)} of {len(frames)} frames failed: " +
                    "; ".join(f"{frame.get_title()}: {frame.finding[-1] if frame.finding else '?'}" for frame in failed))
    if code > SIGNALLED:
        watcher.say(f"{NAME}: interrupted; {sum(frame.state in ('done', 'kept') for frame in frames)} of {len(frames)} "
                    "frames are there")


def run(words=None):
    def interrupt(number, _):
        raise Interrupted(number)

    try:
        options, rest = parse(words)
        # Dask reads it when it is loaded. Workers are then forked from one process that has loaded it, which starts and
        # ends a cluster several seconds sooner.
        os.environ.setdefault("DASK_DISTRIBUTED__WORKER__MULTIPROCESSING_METHOD", "forkserver")
        try:
            import distributed  # noqa: F401
        except ImportError:
            raise Stopped("it works through Dask, which is not installed: apt-get install python3-distributed, or pip "
                          "install qn_sds[farm]", FAILED) from None
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            if signal.getsignal(number) != signal.SIG_IGN:
                signal.signal(number, interrupt)
        return render(options, rest, Watcher)
    except Stopped as error:
        print(f"{NAME}: {error}" if not str(error).startswith("sds") else error, file=sys.stderr)
        return error.code
    except (RuntimeError, RendererGone, OSError) as error:
        print(f"{NAME}: {error}", file=sys.stderr)
        return FAILED
    except Interrupted as error:
        print(f"{NAME}: interrupted", file=sys.stderr)
        return SIGNALLED + error.args[0]
