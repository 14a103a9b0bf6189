// SPDX-License-Identifier: Apache-2.0
#include <QZsys/ProgressBlocks.h>

#include "IndexDetail.h"

#include <algorithm>

CPrgCntBlocksTreaded::CPrgCntBlocksTreaded(CProgressCounter * parent, int blockCount) : m_parent(parent)
{
    setBlockCount(blockCount);
}

void CPrgCntBlocksTreaded::setBlockCount(int blockCount)
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    m_blockFinished.assign(VsUt::asIndex(std::max(blockCount, 0)), 0);
    m_finishedCount = 0;
    m_reported = 0.0;
    for (Child & child : m_children)
        child.block = -1;
}

void CPrgCntBlocksTreaded::AddChildPrgCnt(CProgressCounter * child)
{
    if (!child || child == m_parent)
        return;
    std::lock_guard<std::mutex> const lock(m_mutex);
    if (!findChild(child))
        m_children.push_back({child, -1});
    if (m_stopped)
        child->interrupt();
}

void CPrgCntBlocksTreaded::RemoveChildPrgCnt(CProgressCounter * child)
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    if (Child * const known = findChild(child)) {
        *known = m_children.back();
        m_children.pop_back();
    }
}

void CPrgCntBlocksTreaded::BindChildToBlock(int block, CProgressCounter * child)
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    Child * const known = findChild(child);
    if (!known)
        return;
    known->block = isBlock(block) ? block : -1;
    child->forgetRun();
}

void CPrgCntBlocksTreaded::OnOneBlockMoreFinished(int block, CProgressCounter * child)
{
    std::lock_guard<std::mutex> const lock(m_mutex);
    if (Child * const known = findChild(child))
        known->block = -1;
    if (isBlock(block) && !m_blockFinished[VsUt::asIndex(block)]) {
        m_blockFinished[VsUt::asIndex(block)] = 1;
        ++m_finishedCount;
    }
}

void CPrgCntBlocksTreaded::UpdateParentPrgCnt()
{
    double position = 0.0;
    {
        std::lock_guard<std::mutex> const lock(m_mutex);
        position = m_reported = std::max(m_reported, overallPosition());
    }
    if (!m_parent)
        return;
    try {
        m_parent->SetPosFloat(position);
    } catch (...) {
        std::lock_guard<std::mutex> const lock(m_mutex);
        m_stopped = true;
        for (Child const & child : m_children)
            child.counter->interrupt();
        throw;
    }
}

CPrgCntBlocksTreaded::Child * CPrgCntBlocksTreaded::findChild(CProgressCounter * counter)
{
    auto const found = std::find_if(m_children.begin(), m_children.end(),
                                    [counter](Child const & child) { return child.counter == counter; });
    return found == m_children.end() ? nullptr : &*found;
}

bool CPrgCntBlocksTreaded::isBlock(int block) const
{
    return block >= 0 && VsUt::asIndex(block) < m_blockFinished.size();
}

double CPrgCntBlocksTreaded::overallPosition() const
{
    if (m_blockFinished.empty())
        return 1.0;
    double sum = m_finishedCount;
    for (Child const & child : m_children)
        if (isBlock(child.block) && !m_blockFinished[VsUt::asIndex(child.block)])
            sum += child.counter->getPosFloat();
    return std::min(1.0, sum / static_cast<double>(m_blockFinished.size()));
}
