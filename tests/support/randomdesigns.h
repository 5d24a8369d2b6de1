// Designs by chance in properties: a failing one shrinks to a small design.
#pragma once

#include "gen/designgenerator.h"

#include <rapidcheck.h>

#include <algorithm>
#include <limits>

namespace orvo::test {

/// Recipes of up to so many steps.
inline rc::Gen<std::vector<gen::Recipe>> recipes(std::size_t most) {
    const auto number = rc::gen::inRange<std::uint32_t>(0, std::numeric_limits<std::uint32_t>::max());
    const auto recipe = rc::gen::build<gen::Recipe>(
        rc::gen::set(&gen::Recipe::kind, number),
        rc::gen::set(&gen::Recipe::choices, rc::gen::container<std::vector<std::uint32_t>>(24, number)));
    // A container shrinks by single elements, wherever they stand.
    return rc::gen::map(rc::gen::container<std::vector<gen::Recipe>>(recipe), [most](std::vector<gen::Recipe> all) {
        all.resize(std::min(all.size(), most));
        return all;
    });
}

} // namespace orvo::test

namespace orvo::gen {

/// How RapidCheck shows a recipe.
inline void showValue(const Recipe &recipe, std::ostream &out) {
    out << "{" << recipe.kind << ", {";
    for (const std::uint32_t choice : recipe.choices) {
        out << choice << ", ";
    }
    out << "}}";
}

} // namespace orvo::gen
