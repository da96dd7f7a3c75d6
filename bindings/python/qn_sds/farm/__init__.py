"""Pictures and sequences on more than one machine::

    python3 -m qn_sds.farm cage.####.obj --frames 1-240 -o out.####.exr

Every option of ``sds render``, and the same picture, bit for bit. The work is cut into tiles of frames and given to
Dask, on a cluster that stands (``--scheduler tcp://host:port``) or on this machine's cores. `main` takes the words of
the command line and returns the exit code.
"""


def main(words=None):
    """Runs the farm on the words behind its name, those of the process by default, and returns the exit code."""
    from .command import run

    return run(words)


__all__ = ["main"]
