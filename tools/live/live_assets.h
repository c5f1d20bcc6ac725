// The page's files, compiled into the runner (generated at build time from
// tools/live/assets and the system's Chart.js). Nothing else is served.
#ifndef QZRUN_LIVE_ASSETS_H
#define QZRUN_LIVE_ASSETS_H

#include <cstddef>
#include <string>

namespace qzlive {

struct Asset {
    const char* Path;  // as requested, e.g. "/live.js"
    const char* ContentType;
    const unsigned char* Data;
    size_t Size;
};

// The asset served at `path` exactly, or null.
const Asset* FindAsset(const std::string& path);

}  // namespace qzlive

#endif
