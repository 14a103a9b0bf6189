// SPDX-License-Identifier: Apache-2.0
#include <QZmath/QZmath.h>

#include <cstdio>
#include <string>

namespace
{

// Derives from exported interfaces, so that their virtual tables and type information must come across.
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
    bool const sameVersion = std::string(QZmath::versionString()) == QZMATH_VERSION_STRING &&
                             std::string(QZMATH_VERSION_STRING) == PACKAGE_VERSION &&
                             QZmath::versionNumber() == QZMATH_VERSION;
    bool const right =
        caught && sameVersion && samples.pointsNumber() == 0 && params.estimateTrianglesNumber() == 384;
    std::puts(right ? "ok" : "wrong");
    return right ? 0 : 1;
}
