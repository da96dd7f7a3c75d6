// Symbols that the module exports: its classes and its three intersection functions, nothing else.
#pragma once

#define SDS_EXPORT __attribute__((visibility("default")))
