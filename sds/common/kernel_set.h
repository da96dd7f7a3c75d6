// Kernels that are compiled once per instruction set.
//
// Such a source is in the build once as it is, and once more for every wider set that the processor may have
// (qn_add_kernels of cmake/QnTargets.cmake), each time with QN_KERNEL_SET as the namespace of what it exports. All else
// in it, and in the headers that it shares with no other source, is in unnamed namespaces; and it uses no templates or
// inline functions of any but those and qn_simd: the linker would hand one set's copy of them to another's caller.
#pragma once

#ifndef QN_KERNEL_SET
#define QN_KERNEL_SET baseline
#endif
