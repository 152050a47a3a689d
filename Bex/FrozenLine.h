#pragma once

namespace Bex {

/// The line number by which a message names its place. Log readers match this source and line: never renumber,
/// wherever the code moves.
using FrozenLine = int;

} // namespace Bex
