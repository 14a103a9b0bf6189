// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>
#include <vector>

namespace QZmath::Viewing
{

/// The page without a scene, as it was built from the folder `viewer`, in pieces one behind the other.
std::vector<std::string_view> builtPage();

} // namespace QZmath::Viewing
