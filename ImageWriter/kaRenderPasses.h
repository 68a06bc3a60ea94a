#pragma once

#include "kaRenderPassCatalogue.h"

#include <array>
#include <string>

// The render passes by index, the index being the pass's identifier everywhere (pass image
// vectors, active-pass flags, pass masks): the host's catalogue (kaRenderPassCatalogue.h), with
// the names as strings for file and layer names.
static const unsigned int kaRenderPassCount = kaRenderPass::Count;
static const std::array<std::string, kaRenderPassCount> kaRenderPassNames = [] {
    std::array<std::string, kaRenderPassCount> names;
    for (unsigned int i = 0; i < kaRenderPassCount; ++i)
        names[i] = kaRenderPass::name(int(i));
    return names;
}();
