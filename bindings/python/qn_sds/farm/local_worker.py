"""Loaded by the workers of a cluster for one run: Ctrl-C reaches them too, and is for the farm, which then ends them."""

import signal


def dask_setup(_worker):
    signal.signal(signal.SIGINT, signal.SIG_IGN)
