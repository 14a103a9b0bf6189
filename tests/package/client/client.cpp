// SPDX-License-Identifier: Apache-2.0
#include <QZmath/QZmath.h>

#include <cstdio>

namespace
{

/// Derives from exported interfaces, so that their virtual tables and type information must come across.
class NoSamples : public VolTr::IInputSamples
{
    int onPointsNumber() const override { return 0; }
    float const * onGetSampleCoords3(int) const override { return nullptr; }
    float const * onGetSampleNormal3(int) const override { return nullptr; }
    bool onIsBoundaryVertex(int) const override { return false; }
};

class Counter : public CProgressCounter
{};

} // namespace

int main()
{
    NoSamples const samples;
    VolTr::CVolTriangulationParams params;
    params.setOctreeDepth(3);
    Counter counter;
    counter.interrupt();
    bool caught = false;
    try {
        counter.SetPosFloat(0.5);
    } catch (CUserIntrException const & error) {
        caught = std::string(error.what()) == "user interruption";
    }
    bool const right = caught && samples.pointsNumber() == 0 && params.estimateTrianglesNumber() == 384;
    std::puts(right ? "ok" : "wrong");
    return right ? 0 : 1;
}
