// The exported PPS_* tables that the closed motor driver takes by name.
// Entry i of a run with exponent e is e*1024 + round(K * 2^e / (i + 1)),
// i being the index in the whole table; the tables are built from that rule
// at compile time, with the few entries that stand apart from it.
#include <cstdint>

#include "platform/exports.h"

namespace {

struct Run {
  int first;     // index of the run's first entry
  int exponent;  // e
};

constexpr uint32_t RuleEntry(double k, int exponent, int i) {
  double value = k * (double)(1u << exponent) / (double)(i + 1);
  return (uint32_t)exponent * 1024u + (uint32_t)(value + 0.5);
}

template <int N>
struct Table {
  uint32_t entry[256];
};

template <int N>
constexpr Table<N> Build(double k, const Run (&runs)[N]) {
  Table<N> table{};
  for (int r = 0; r < N; r++) {
    int end = r + 1 < N ? runs[r + 1].first : 256;
    for (int index = runs[r].first; index < end; index++) {
      table.entry[index] = RuleEntry(k, runs[r].exponent, index);
    }
  }
  return table;
}

constexpr Run k800Runs[] = {{1, 0}, {10, 3}, {128, 7}};
constexpr Run k22Runs[] = {{0, 0}, {40, 5}, {200, 7}};
constexpr Run k12Runs[] = {{0, 0}, {4, 1}, {7, 2}, {14, 3}, {34, 4}, {57, 5}, {103, 6}, {138, 7}};
constexpr Run k512Runs[] = {{0, 5}, {3, 6}, {7, 7}, {16, 8}, {36, 9}, {51, 10}};
constexpr Run k1320Runs[] = {{0, 6}, {9, 8}, {37, 10}};

constexpr auto kPps800 = Build(1562.5, k800Runs);
constexpr auto kPps22 = Build(781.25, k22Runs);
constexpr auto kPps12 = Build(1296.0, k12Runs);
constexpr auto kPps512 = Build(20.25, k512Runs);
constexpr auto kPps1320 = Build(14.7966, k1320Runs);

template <typename T>
void CopyTable(uint32_t* out, const T& table) {
  for (int i = 0; i < 256; i++) out[i] = table.entry[i];
}

}  // namespace

extern "C" {
uint32_t PPS_1_2Phase_800[256];
uint32_t PPS_2_2Phase[256];
uint32_t PPS_1_2Phase[256];
uint32_t PPS_512uStepPhase[256];
uint32_t PPS_512uStepPhase1320[256];
}

// Fills the exported arrays before main; they stay writable for the driver.
__attribute__((constructor)) static void FillPpsTables() {
  CopyTable(PPS_1_2Phase_800, kPps800);
  PPS_1_2Phase_800[0] = 1024;
  CopyTable(PPS_2_2Phase, kPps22);
  CopyTable(PPS_1_2Phase, kPps12);
  PPS_1_2Phase[255] = 7819;
  CopyTable(PPS_512uStepPhase, kPps512);
  for (int i = 232; i < 256; i++) PPS_512uStepPhase[i] = 10330;
  CopyTable(PPS_512uStepPhase1320, kPps1320);
}
