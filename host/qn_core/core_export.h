// Symbol visibility of the host library.
#pragma once

#define QN_EXPORT __attribute__((visibility("default")))
