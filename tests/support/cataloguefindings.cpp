// The catalogue's verifier over whole designs.
#include "support/cataloguefindings.h"

#include <orvo/block.h>
#include <orvo/blocksinfo.h>
#include <orvo/design.h>
#include <orvo/model.h>
#include <orvo/netlistverification.h>

#include <algorithm>
#include <set>

namespace orvo::test {

std::vector<std::string> catalogueFindings(const Design &design) {
    CatalogueVerifier verifier(getBlocksInfo(), design.getContext());
    std::vector<std::string> texts;
    for (const Model &model : design) {
        for (const Block &block : model) {
            for (const CatalogueFinding &finding : verifier.verify(block)) {
                texts.push_back(block.value()->getPath() + ": " + finding.text);
            }
        }
    }
    return texts;
}

std::vector<std::string> newCatalogueFindings(const Design &before, const Design &after) {
    const std::vector<std::string> old = catalogueFindings(before);
    const std::set<std::string> known(old.begin(), old.end());
    std::vector<std::string> found = catalogueFindings(after);
    found.erase(
        std::remove_if(found.begin(), found.end(), [&](const std::string &text) { return known.count(text) != 0; }),
        found.end());
    return found;
}

} // namespace orvo::test
