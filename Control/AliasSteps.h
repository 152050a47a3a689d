#pragma once

#include "Common/CAliases.h"

#include <string>
#include <vector>

/// The way of an address through a table that has not been pre-resolved, step by step, until a user, an address
/// elsewhere, nothing, or a target that was there before: then it goes round in a circle.
struct SAliasWay
{
    std::vector<CAliases::SStep> steps;
    bool bCircle = false;

    const Bex::CSimpleString& End() const { return steps.back().strTarget; } ///< empty: nowhere
    std::string Text(const Bex::CSimpleString& strAddress) const;            ///< "a@l -> b@l -> ann"
};

SAliasWay AliasWay(CAliases& plain, const Bex::CSimpleString& strAddress);
