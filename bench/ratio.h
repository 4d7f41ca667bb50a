// ratio.h - rows of the table that `make bench` prints: our time beside a peer's
#ifndef BENCH_RATIO_H
#define BENCH_RATIO_H

namespace ku::bench
{

// One row: peer's time / our time, so 2 means twice as fast as the peer.
struct ratio {
    const char *what; // the work, in words
    const char *ours; // benchmark name of our side
    const char *peer; // benchmark name of the peer's side
    double least;     // the ratio that is required
    double aim;       // the ratio that we want
    const ratio *next;

    ratio(const char *work, const char *our_name, const char *peer_name, double required,
          double wanted);
    static const ratio *first;
};

} // namespace ku::bench

#define KU_RATIO_JOIN2(a, b) a##b
#define KU_RATIO_JOIN(a, b) KU_RATIO_JOIN2(a, b)
#define KU_RATIO(what, ours, peer, least, aim)                                                     \
    static const ku::bench::ratio KU_RATIO_JOIN(ratio_, __LINE__)(what, ours, peer, least, aim)

#endif
