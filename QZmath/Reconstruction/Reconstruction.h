// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QZmath/Export.h>
#include <QZmath/Foundation/PointCloudView.h>
#include <QZmath/Foundation/TriangleMesh.h>
#include <QZmath/VolTriang/ReconstructionReport.h>
#include <QZmath/VolTriang/VolTriangulationParams.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

class CProgressCounter;

/// One call from points to a finished mesh.
///
///     std::vector<float> positions, normals;                       // 3 numbers a point
///     QZmath::PointCloudView cloud;
///     cloud.size = positions.size() / 3;
///     cloud.positions = positions.data();
///     cloud.normals = normals.data();                              // without them, they are estimated
///     QZmath::TriangleMesh const mesh = QZmath::reconstruct(cloud);
///
/// What the call does, in its order: it checks the points and moves them to an origin among them, removes
/// outliers if asked for, estimates or checks the normals, chooses the octree's depth, solves for the
/// implicit function and extracts all pieces of its level set (`VolTr::CVolumetricTriangulator`), moves the
/// vertices onto the samples, drops specks, closes or cuts off what no sample supports, removes slivers,
/// merges triangles if asked for, and gives the vertices normals, colours and densities.
namespace QZmath
{

/// What becomes of surface that is far from all samples.
enum class Boundary
{
    automatic, ///< small gaps are closed, large ones and what would close an open scan are left open
    closed,    ///< everything stays, so that the surface is closed, unless it runs out of the octree (the
               ///< report's `endsAtLimit`, with a warning)
    open       ///< everything is cut off
};

/// Where the normals come from.
enum class Normals
{
    automatic, ///< the given ones, of which those are replaced that are wrong beyond doubt; without any,
               ///< estimated
    asGiven,   ///< the given ones, unjudged but for their being finite
    reorient,  ///< directions as given, signs anew
    estimate   ///< from the points alone
};

struct ReconstructionOptions
{
    /// Depth of the octree, 2 to 29: the leaf lattice has 2^depth cells along the cloud's longest side. 0:
    /// that which `cellSize` says, or else one whose leaf cells are about as large as the spacing of the
    /// samples, or as their noise where that is larger.
    int depth = 0;
    /// With depth 0: the least depth whose leaf cells are at most this large, in units of the cloud; 0: none.
    double cellSize = 0;

    Boundary boundary = Boundary::automatic;
    /// Distance from the nearest sample up to which the surface counts as supported, 0.5 to 100: in leaf
    /// cells, or in spacings of the samples where these are larger. An open one is cut at the rim of what is.
    double trimDistance = 2;
    /// `automatic`: share of the area of the supported surface up to which a gap is closed, 0 to 1. A gap
    /// whose rim is made of samples with a boundary mark stays open.
    double largestHole = 0.2;

    /// All pieces of the surface, or only the one with most samples.
    bool allComponents = true;
    /// Pieces with a smaller share of the triangles are dropped, 0 to 1; and those that no sample supports.
    double smallestComponent = 0.001;

    bool refine = true; ///< `VolTr::CVolTriangulationParams::refine`
    bool vertexNormals = true;
    bool vertexDensity = false;

    /// Points whose mean distance to their neighbours exceeds that of the cloud by more than so many standard
    /// deviations are left out. 0: none. Usual: 2 to 4.
    double outlierRemoval = 0;
    /// Above 0: triangles are merged as long as the surface stays within so many leaf cells.
    double simplifyError = 0;

    Normals normals = Normals::automatic;
    int normalNeighbours = 20;         ///< points that an estimated normal is taken from, 3 to 1000
    std::array<double, 3> viewpoint{}; ///< place of the scanner: estimated normals and new signs point to it
    bool hasViewpoint = false;         ///< without one, signs spread over the surface and point outwards
    /// Of clouds from several places: the point with index i was seen from `viewpoints[k]`, where k is the
    /// first with i < `viewpointEnds[k]`. Empty: `viewpoint` is that of all.
    std::vector<std::array<double, 3>> viewpoints;
    std::vector<std::size_t> viewpointEnds;

    /// Of this call; 0: those of `CVescaThreadingTasksHelper`.
    int threads = 0;
    /// Bytes that the call may take, the mesh included and the caller's arrays not; 0: no limit. Refused
    /// before it begins, by the estimate.
    std::int64_t memoryLimit = 0;

    /// Everything else of the core, which is accelerated here by default. Depth, `closed`, `refine`, normals
    /// of vertices and what concerns pieces and reach are set from the options above.
    VolTr::CVolTriangulationParams core = acceleratedCore();

    /// The core's defaults with the accelerated path.
    static QZMATH_API VolTr::CVolTriangulationParams acceleratedCore();

    /// \throws ReconstructionError that names the first option out of its range, as `reconstruct` does
    QZMATH_API void check() const;
};

/// What a call of `reconstruct` found and did, beside what the core reports. All lengths in units of the
/// cloud.
struct ReconstructionReport : VolTr::CReconstructionReport
{
    double spacing = 0;    ///< mean distance of a sample to its neighbours on the surface
    double cloudNoise = 0; ///< rms distance of samples to the planes of their neighbours
    double leafCell = 0;   ///< edge of a leaf cell
    std::size_t outliersRemoved = 0;
    std::size_t repeatedRemoved = 0; ///< points in the place of another one, where they are many

    bool normalsEstimated = false;       ///< of all points
    std::size_t normalsReplaced = 0;     ///< that were zero and have been estimated
    std::size_t pointsWithoutNormal = 0; ///< whose neighbours span no plane: they take no part
    double normalsOffPlane = 0; ///< share of the given normals that disagree with the plane of neighbours
    double normalsAgainstOthers = 0;    ///< share whose sign disagrees with most neighbours
    bool turnedInsideOut = false;       ///< the given normals pointed into the body and have been turned
    std::size_t guessedOrientation = 0; ///< points of parts whose side could not be told from their shape

    int componentsFound = 0;
    int componentsKept = 0;
    int specksDropped = 0;
    double supportedArea = 0;
    int holesClosed = 0;
    int gapsFaired = 0;     ///< patches over closed gaps that were smoothed
    int gapsLeftRough = 0;  ///< that were not: their plate would fold, or they are too large
    double closedArea = 0;  ///< of those holes, as a share of the supported area
    int boundariesLeft = 0; ///< closed loops along which the surface ends
    double boundaryLength = 0;
    bool isClosed = false;              ///< the mesh has no border
    std::size_t samplesFarFromMesh = 0; ///< farther than two leaf cells
    /// How the least angles of the triangles are distributed.
    struct Angles
    {
        double least = 0; ///< degrees
        double belowOne = 0, belowFive = 0,
               belowTen = 0; ///< shares of the triangles with a lesser one, 0 to 1
    };
    Angles anglesBefore, anglesAfter;              ///< the removal of slivers
    std::size_t sliversRemoved = 0;                ///< triangles below one degree
    std::size_t trianglesBeforeSimplification = 0; ///< 0 when it was not asked for

    /// Sentences about what is doubtful in the cloud or the result, each with the option that helps.
    std::vector<std::string> warnings;

    /// In words what was done: "closed 2 holes (1.3 % of the area), left 1 boundary open, dropped 3 specks,
    /// kept 2 components".
    QZMATH_API std::string summary() const;
};

/// Why a call of `reconstruct` ended without a mesh; `what()` is one sentence for the user.
class QZMATH_API ReconstructionError : public std::runtime_error
{
public:
    enum class Kind
    {
        input,   ///< no surface can be made of the points; the sentence names the first bad one
        options, ///< an option is out of its range
        memory,  ///< `memoryLimit` would not suffice
        failed   ///< the points were usable, yet no surface came out
    };
    ReconstructionError(Kind kind, std::string const & sentence);
    ~ReconstructionError() override;
    Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};

/// What a call would take, from one pass over the points. For clouds with normals.
struct ReconstructionEstimate
{
    int depth = 0;              ///< that would be used
    std::int64_t nodes = 0;     ///< of the octree
    std::int64_t triangles = 0; ///< about
    std::int64_t memory = 0;    ///< bytes at the peak, the mesh included and the caller's arrays not
};

/// The surface of a cloud.
///
/// Deterministic: the same input gives the same bits for any number of threads. Several calls may run at the
/// same time. The cloud is only read.
///
/// Time and memory grow with the triangles, that is with the square of the cells along the cloud, and hardly
/// with its points; what the depth costs, `estimateReconstruction` tells. Few points may make a large surface
/// when they lie on none: 2829 points strewn in a cube make a million triangles at depth 7, in 4 s.
///
/// \param report   filled as far as the call comes, also when it throws; may be null
/// \param progress from 0 to 1 over the whole call; may be null
/// \throws ReconstructionError of what kept it from a mesh
/// \throws CUserIntrException when the progress counter was interrupted
/// \throws std::bad_alloc
QZMATH_API TriangleMesh reconstruct(PointCloudView const & cloud, ReconstructionOptions const & options = {},
                                    ReconstructionReport * report = nullptr,
                                    CProgressCounter * progress = nullptr);

/// What `reconstruct` with the same arguments would take: the memory within a third of it for clouds as most
/// are, but without what smoothing the surface over large gaps takes, about 1.5 kB a vertex of the largest.
/// Throws as it does for what is refused before the work begins, but for the memory limit, and when the
/// progress counter, which may be null, was interrupted.
QZMATH_API ReconstructionEstimate estimateReconstruction(PointCloudView const & cloud,
                                                         ReconstructionOptions const & options = {},
                                                         CProgressCounter * progress = nullptr);

} // namespace QZmath
