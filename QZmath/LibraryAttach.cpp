// SPDX-License-Identifier: Apache-2.0
#include <QZsys/CpuConf.h>

namespace
{

// The processor configuration is settled when the library is loaded, before any of its services can be
// called.
struct LibraryAttach
{
    LibraryAttach() { InitCPUconf(); }
};

LibraryAttach const libraryAttach;

} // namespace
