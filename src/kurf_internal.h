// kurf_internal.h - a runner as allocated
#ifndef KURF_INTERNAL_H
#define KURF_INTERNAL_H

#include "kurf.h"
#include "kurl_internal.h"

// Where followpos of a position leads: bits of one word of a set, or several words.
struct kurfjump {
    std::uint64_t bits;
    std::uint32_t word;
    std::uint32_t many; // 1: the list must be read
};

// One character whose matches a run has looked up.
struct kurfslot {
    std::uint32_t tchar;
    std::uint32_t run;   // the run that this is of
    std::uint8_t starts; // whether the start set matches it: kurfstarts
};

// Sets of positions as bits, position p at bit p - 1. All arrays lie in one block.
struct kurfmap {
    std::uint32_t words;     // words of a set
    std::uint32_t slots;     // characters looked up at a time; a power of 2
    std::uint32_t run;       // number of the current run
    std::uint32_t startlow;  // words of the start set that are not 0 lie from here
    std::uint32_t starthigh; // to here
    std::uint32_t low;       // the same of the current set; low > high: empty
    std::uint32_t high;
    std::uint64_t *start;     // the start set
    std::uint64_t *current;   // the current set, unless that is the start set
    std::uint64_t *next;      // all 0 between steps
    std::uint64_t *accepting; // accepting positions
    std::uint64_t *always;    // positions that match any character: dots
    std::uint64_t *known;     // per slot: positions whose match with its character is known
    std::uint64_t *matching;  // per slot: those of them that match
    kurfjump *jumps;          // by position
    kurfslot *table;
};

struct kurfrunner {
    kurf open;
    kurl *shown;          // what clients see while the current set is bits; owned
    std::uint8_t quick;   // 1: this run works on bits
    std::uint8_t ranged;  // 1: the pattern has ranges, which need the successor function
    std::uint8_t mixed;   // 1: one of them is between a class and a character
    std::uint8_t classed; // 1: the pattern has escape classes, whose members may change
    std::uint8_t steady;  // 1: what the last run looked up holds for ever
    kurfmap map;
};

inline kurfrunner &kurfrunnerof(kurf &runner) { return reinterpret_cast<kurfrunner &>(runner); }

#endif
