#include "live_assets.h"

#include "live_assets_data.h"  // generated: kAssets

namespace qzlive {

const Asset* FindAsset(const std::string& path) {
    for (const Asset& asset : kAssets)
        if (path == asset.Path) return &asset;
    return nullptr;
}

}  // namespace qzlive
