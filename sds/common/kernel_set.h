// Kernels that are compiled once per instruction set.
//
// Such a source is in the build once as it is, and once more for every wider set that the processor may have
// (qn_add_kernels of cmake/QnTargets.cmake), each time with QN_KERNEL_SET as the namespace of what it exports. All else
// in it, and in the headers that it shares with no other source, is in unnamed namespaces. Of other headers but qn_simd
// it uses constants, inline functions that are always inlined, and templates with a type of its own among their
// arguments: of anything else the linker would hand one set's copy to another's caller.
#pragma once

#ifndef QN_KERNEL_SET
#define QN_KERNEL_SET baseline
#endif
