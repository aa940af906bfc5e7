/// \file
/// Comes before every header of Highway (internal): which levels the vector kernels are compiled for, and how a topic
/// makes its table of them.
#ifndef QSBASE_SIMD_TARGETS_H
#define QSBASE_SIMD_TARGETS_H

// No kernel computes with floating-point numbers, and nobody has SSSE3 without SSE4 any more.
#define HWY_DISABLE_F16C
#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_AVX3_DL)

#include <hwy/detect_targets.h>

#include <QSbase/simd/level.h>

/// True where a file that is compiled once a target meets one that is a level.
#define QSBASE_SIMD_TARGET (HWY_TARGET == HWY_SSE4 || HWY_TARGET == HWY_AVX2 || HWY_TARGET == HWY_AVX3)

// A level that a build leaves out takes the table of the one below it.
#if HWY_TARGETS & HWY_SSE4
#define QSBASE_SSE4_TABLE(table, below) N_SSE4::table
#else
#define QSBASE_SSE4_TABLE(table, below) below
#endif
#if HWY_TARGETS & HWY_AVX2
#define QSBASE_AVX2_TABLE(table, below) N_AVX2::table
#else
#define QSBASE_AVX2_TABLE(table, below) below
#endif
#if HWY_TARGETS & HWY_AVX3
#define QSBASE_AVX512_TABLE(table, below) N_AVX3::table
#else
#define QSBASE_AVX512_TABLE(table, below) below
#endif

/// The tables of all levels, for an array of `kSimdLevels` pointers: `scalar`, and the `table` of each target's
/// namespace.
#define QSBASE_SIMD_TABLES(scalar, table)                                                                    \
  &(scalar), &QSBASE_SSE4_TABLE(table, scalar), &QSBASE_AVX2_TABLE(table, QSBASE_SSE4_TABLE(table, scalar)), \
      &QSBASE_AVX512_TABLE(table, QSBASE_AVX2_TABLE(table, QSBASE_SSE4_TABLE(table, scalar)))

#endif
