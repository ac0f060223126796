// SPDX-License-Identifier: MIT
#pragma once

#include "Script.h"

namespace kel::http::simulation {

// Whether the model knows all fields that make up a request's fate. A field that has its default counts as absent, so that a
// new kind of trouble leaves the predictions for the others as they are until the model has learnt it.
bool isKnown(const Script& script, const RequestScript& request);

}  // namespace kel::http::simulation
