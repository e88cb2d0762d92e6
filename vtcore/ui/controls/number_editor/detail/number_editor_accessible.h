// The number editor's accessibility interfaces: the control exposes each
// editor cell as a child with a value interface, whose minimum and maximum
// are the delegate's answers. Not part of the library's API.
#pragma once

namespace vtcore::detail {

/// Installs the accessibility factory of DfNumberEditorControl (once).
void installNumberEditorAccessibility();

} // namespace vtcore::detail
