// The scheduler's worker threads, made while the system still gives threads.
#pragma once

// Sees to it that work begun from here on finds `wanted` workers beside the caller; returns how many it finds. The
// scheduler makes them when it first needs them and ends the process when the system refuses one: with a limit on the
// address space, on processes or on a container's threads. So it is asked early and never for more than there are; the
// process goes on with those, in the worst case on the calling thread alone. Any thread may call, any number of times.
unsigned int sys_prepare_workers(unsigned int wanted);
