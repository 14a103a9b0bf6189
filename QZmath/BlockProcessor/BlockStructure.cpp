// SPDX-License-Identifier: Apache-2.0
#include <QZmath/BlockProcessor/BlockStatus.h>
#include <QZmath/BlockProcessor/BlockStructure.h>

namespace BlockProc
{

EBlockAlgError::~EBlockAlgError() = default;
char const * EBlockAlgError::what() const noexcept { return "block processing failed"; }

Block_iter & Block_iter::operator++()
{
    if (m_structure)
        m_structure->NextBlock(*this);
    return *this;
}

Block_iter Block_iter::operator++(int)
{
    Block_iter const former = *this;
    ++*this;
    return former;
}

CBlockStructure::~CBlockStructure() = default;

int CBlockStructure::BlockIndex(Block_iter block) const
{
    Block_iter current, end;
    BlockBegin(current);
    BlockEnd(end);
    for (int index = 0; current != end; ++current, ++index)
        if (current == block)
            return index;
    return -1;
}

} // namespace BlockProc
