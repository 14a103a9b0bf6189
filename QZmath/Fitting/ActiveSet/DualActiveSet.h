// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

/// minimise ½ x'Hx + c'x  subject to  A_i x = b_i for i < equalities, A_i x >= b_i for the other rows, and
/// lower <= x <= upper. Matrices are column-major. All numbers but bounds must be finite.
struct QuadraticProgramView
{
    int variables;
    int rows;
    int equalities;
    double const * hessian; ///< both triangles, equal, without gaps
    double const * gradient;
    double const * matrix;
    int leadingMatrix;
    double const * rightSide;
    double const * lower;
    double const * upper;
};

/// Dual active-set method for dense convex quadratic programs (D. Goldfarb, A. Idnani, A numerically stable
/// dual method for solving strictly convex quadratic programs, Mathematical Programming 27, 1983), with three
/// additions: a first working set is installed as a whole, so that warm starts and equalities need no steps;
/// a semidefinite H is lifted a little and the lift is undone by proximal iterations (R. T. Rockafellar,
/// Monotone operators and the proximal point algorithm, 1976), which in turn are iterative refinement for a
/// definite one; and a ray along which the objective falls for ever is recognised between these iterations.
///
/// The working set holds constraints that are treated as equations. With N their unit normals, J satisfies
/// J'(H + lift)J = 1 and J'N = (R; 0) with R upper triangular. Householder reflections add a column and
/// Givens rotations remove one, both acting on columns of J, so that row j of J keeps its length, the square
/// root of the j-th diagonal element of (H + lift)^-1. Tests for dependence measure in this length, which
/// makes them independent of the units of the variables.
///
/// Layout: the caller's array of numbers holds J and R, each `variables` columns of `variables` elements,
/// then the vectors by variable and those by row in the order of the members; that of integers holds the
/// working set and the place of each constraint. Column k of R and entry k of the multipliers belong to
/// constraint m_set[k], equalities before inequalities; the columns of J from m_active on span what the
/// working set leaves free. So a step that keeps the working set is a combination of those columns, and the
/// multipliers that answer it are R^-1 times the first m_active components of J' times the new normal, the
/// projection.
///
/// Invariant: J'(H + lift)J = 1 and J'N = (R; 0) at any time. From the first correction of a round on, x also
/// minimises the lifted objective on the working set, under multipliers of inequalities that are at least 0,
/// within rounding. Admitting a constraint goes along a line on which this stays true with the new multiplier
/// rising from 0; a constraint whose multiplier reaches 0 on the way is dropped.
///
/// Order of steps: check and scale the constraints; factor H, lifted where it must be; install equalities and
/// the warm set. Then rounds, each of which corrects x and the multipliers from the residuals and drops what
/// has got the wrong sign (dual feasibility), then admits the constraint that is violated most until there is
/// none (primal feasibility; every admission drops what stands in its way), then measures what is left. The
/// first round solves, the others refine, or undo the lift, until nothing is gained.
///
/// Lives in the memory of its caller and allocates nothing.
class CDualActiveSet
{
public:
    /// Bounds of at least this magnitude are none.
    static constexpr double noBound = 1.0e9;
    /// Rounding errors stay below this many units of the machine precision.
    static constexpr double roundingUnits = 1000.0;

    enum class Result
    {
        Solved,
        IterationLimit,
        Infeasible,
        Unbounded,
        NotConvex
    };

    /// Room that the constructor takes at `numbers` and `integers`.
    static std::size_t numbersNeeded(std::size_t variables, std::size_t rows);
    static std::size_t integersNeeded(std::size_t variables, std::size_t rows);

    /// `tolerance` is relative: to the size of the terms of a constraint or of a gradient component.
    CDualActiveSet(QuadraticProgramView const & program, double tolerance, double epsilon, double * numbers,
                   int * integers);

    /// Solves from `x`, which matters only for a semidefinite H. `warmSet` is null or as `describe` makes it;
    /// what it names in vain (bounds that do not exist, dependent constraints) is passed over.
    Result solve(double const * x, int const * warmSet, int maxIterations);

    double const * x() const { return m_x; }
    /// Changes of the working set.
    int iterations() const { return m_iterations; }
    /// After `Infeasible`: a row, or `rows` plus a variable whose bounds contradict the rest.
    int conflict() const;
    /// Multipliers of rows and of bounds, 0 where not active, and the flags of rows and of variables: 1 for
    /// an active row, -1 and 1 for an active lower and upper bound. The count of those that are not 0.
    int describe(double * rowMultipliers, double * lowerMultipliers, double * upperMultipliers,
                 int * activeSet) const;

private:
    using Index = std::size_t;

    // Constraints are numbered through: the rows, the lower bounds, the upper bounds.
    Index variable(Index id) const { return (id - m_rows) % m_size; }
    bool isUpper(Index id) const { return id >= m_rows + m_size; }
    double norm(Index id) const { return id < m_rows ? m_norms[id] : 1.0; }
    bool exists(Index id) const;
    bool isEquality(Index id) const;
    double bound(Index id) const;
    double slack(Index id) const;
    double slackScale(Index id) const;
    void addNormal(Index id, double factor, double * vector) const;
    void noteSpread(double stepLength);

    bool prepareConstraints();
    bool factor(double const * start);
    bool tryFactor(double liftFactor);
    bool chooseLift(double const * start);
    double leastCurvature() const;

    void project(Index id);
    void add(Index id, double multiplier);
    void drop(Index position);
    void solveUpper(double * vector) const;
    void solveUpperTransposed(double * vector) const;

    bool install(int const * warmSet);
    bool combine(Index id);
    bool isContradiction(Index id) const;
    void evaluateRows();
    double correct();
    double relativeResidual();
    bool restoreDualFeasibility(int maxIterations);
    Result restorePrimalFeasibility(int maxIterations);
    Result admit(Index id, int maxIterations);
    Result settle(int maxIterations);
    bool areOthersMet() const;
    bool arePassedOverMet();
    bool followRay(double leastSlope);

    QuadraticProgramView m_program;
    Index m_size; ///< variables
    Index m_rows;
    double m_tolerance;
    double m_looseTolerance; ///< where the fine one is out of reach
    double m_epsilon;
    int m_iterations = 0;
    int m_conflict = 0;
    Index m_active = 0; ///< size of the working set
    bool m_isLifted = false;
    bool m_isBalanced = false;  ///< each component of the gradient equation by itself, at the last residual
    double m_largestForce = 0;  ///< greatest gradient component or multiplier in all rounds
    double m_ownErrorLevel = 0; ///< of the components of the last projection
    double m_errorLevel = 0;    ///< of what the working set leaves of it

    // By variable, and J and R by column.
    double * m_j;
    double * m_r;
    double * m_lift;
    double * m_rowLength; ///< of the rows of J
    double * m_x;
    double * m_previous;  ///< x before the last proximal iteration
    double * m_direction; ///< step of the one before
    double * m_projection;
    double * m_dual; ///< R^-1 times the first part of the projection
    double * m_residual;
    double * m_scratch;
    double * m_multipliers; ///< by position in the working set
    double * m_errorLevels; ///< of their projections, likewise
    double * m_spread; ///< magnitude of what x was summed up from in this round: what its error scales with
    double * m_leastSpread; ///< the rounding error of that in all rounds
    // By row.
    double * m_norms;      ///< 0 for a row that is passed over since it holds for every x
    double * m_rowValues;  ///< A x, as of the last `evaluateRows`
    double * m_rowSpreads; ///< the same for the spread
    double * m_rowRates;
    int * m_set;   ///< constraints of the working set, equalities first
    int * m_place; ///< by constraint: 0 idle, 1 in the working set, -1 passed over
};
