// What the soak samples of its own process (resident memory, threads, open
// descriptors, the allocator's figures) and how it judges growth after the
// warm-up.
#pragma once

#include <dirent.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace soak {

struct ProcStats {
    long rssKb = 0;
    int threads = 0;
    int fds = 0;
    // Bytes the program holds in malloc's blocks, and what malloc keeps from
    // the system for them (every arena and mapped block): resident memory
    // that grows while the first stays put is the allocator's, not a leak.
    // The SDK maps its frame storage itself, so frames are in neither.
    long heapInUseKb = 0;
    long heapHeldKb = 0;

    static int entries(const char* dir) {
        int n = 0;
        if (DIR* d = opendir(dir)) {
            while (dirent* e = readdir(d))
                if (e->d_name[0] != '.') ++n;
            closedir(d);
        }
        return n;
    }

    static ProcStats now() {
        ProcStats s;
        long pages = 0, resident = 0;
        if (FILE* f = std::fopen("/proc/self/statm", "r")) {
            if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
            std::fclose(f);
        }
        s.rssKb = resident * (sysconf(_SC_PAGESIZE) / 1024);
        s.threads = entries("/proc/self/task");
        s.fds = entries("/proc/self/fd") - 1;  // the one opendir holds
        const struct mallinfo2 m = mallinfo2();
        s.heapInUseKb = long((m.uordblks + m.hblkhd) / 1024);
        s.heapHeldKb = long((m.arena + m.hblkhd) / 1024);
        return s;
    }
};

// One sample per cycle, taken at the same point of each cycle (streaming
// again after the last fault); cycles alternate between the transports.
struct Sample {
    int cycle = 0;
    bool tcp = true;
    ProcStats stats;
};

struct Growth {
    bool judged = false;  // some transport has two samples after the warm-up
    double rssGrowthPct = 0;
    int threadGrowth = 0;
    int fdGrowth = 0;
};

// Per transport, the last sample against the first one after `warmupCycles`
// cycles; the worst transport counts. The two transports keep different
// buffers, so each is compared with itself.
inline Growth judgeGrowth(const std::vector<Sample>& samples, int warmupCycles) {
    Growth g;
    for (bool tcp : {true, false}) {
        const Sample* first = nullptr;
        const Sample* last = nullptr;
        for (const Sample& s : samples) {
            if (s.tcp != tcp || s.cycle < warmupCycles) continue;
            if (!first) first = &s;
            last = &s;
        }
        if (!first || first == last) continue;
        const double pct = 100.0 * double(last->stats.rssKb - first->stats.rssKb) / double(first->stats.rssKb);
        const int threads = last->stats.threads - first->stats.threads;
        const int fds = last->stats.fds - first->stats.fds;
        if (!g.judged) {
            g = Growth{true, pct, threads, fds};
        } else {
            g.rssGrowthPct = std::max(g.rssGrowthPct, pct);
            g.threadGrowth = std::max(g.threadGrowth, threads);
            g.fdGrowth = std::max(g.fdGrowth, fds);
        }
    }
    return g;
}

}  // namespace soak
