// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/QuadraticProgram.h>

#include <support/DenseSolve.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace
{

enum Status
{
    Solved,
    IterationLimit,
    Infeasible,
    Unbounded,
    NotConvex,
    BadArgument,
    WorkSpaceTooSmall
};

double const infinity = INFINITY;

// A vector with indices of type `int`, as the routine counts.
template <class Value>
struct Array : std::vector<Value>
{
    explicit Array(int count = 0, Value value = {})
        : std::vector<Value>(static_cast<std::size_t>(count), value)
    {}
    Value & operator[](int i) { return this->data()[i]; }
    Value const & operator[](int i) const { return this->data()[i]; }
};
using Numbers = Array<double>;

// A program with room for its results; leading dimensions are larger than needed.
struct Program
{
    Program(int variables, int rows, int equalities)
        : n(variables), m(rows), me(equalities), ldh(variables + 1), lda(rows + 2), h(ldh * n), c(n),
          a(lda * n), b(m), xl(n, -infinity), xu(n, infinity), x(n), lambda(m), zl(n), zu(n), activeSet(m + n)
    {}

    double & hessian(int i, int j) { return h[j * ldh + i]; }
    double & row(int i, int j) { return a[j * lda + i]; }
    double objective(Numbers const & at)
    {
        double sum = 0;
        for (int i = 0; i < n; ++i) {
            sum += c[i] * at[i];
            for (int j = 0; j < n; ++j)
                sum += 0.5 * hessian(i, j) * at[i] * at[j];
        }
        return sum;
    }

    // H = G G' for a G of `rank` columns, which `number` makes up.
    template <class Number>
    void fillHessian(int rank, Number number)
    {
        Numbers factor(n * rank);
        for (double & element : factor)
            element = number();
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j)
                hessian(i, j) = std::inner_product(factor.data() + i * rank, factor.data() + (i + 1) * rank,
                                                   factor.data() + j * rank, 0.0);
        }
    }

    int solve(bool isWarm = false)
    {
        int warm = isWarm ? 1 : 0, lwork = -1, liwork = -1, neededIntegers = 0;
        double needed = 0;
        call(warm, &needed, lwork, &neededIntegers, liwork);
        EXPECT_EQ(status, Solved);
        work = Numbers(lwork = static_cast<int>(needed), NAN);
        iwork = Array<int>(liwork = neededIntegers, -77);
        status = badIndex = -77;
        call(warm, work.data(), lwork, iwork.data(), liwork);
        return status;
    }

    void call(int & warm, double * numbers, int & lwork, int * integers, int & liwork)
    {
        QLPoptimize(&n, &m, &me, &ldh, &lda, &maxIter, &warm, h.data(), c.data(), a.data(), b.data(),
                    xl.data(), xu.data(), x.data(), lambda.data(), zl.data(), zu.data(), &f, &tol, &violation,
                    activeSet.data(), &nActive, &iterations, &status, &badIndex, nullptr, numbers, &lwork,
                    integers, &liwork, nullptr, nullptr);
    }

    int n, m, me, ldh, lda, maxIter = 0;
    Numbers h, c, a, b, xl, xu, x, lambda, zl, zu;
    double f = 0, tol = 0, violation = 0;
    Array<int> activeSet;
    int nActive = 0, iterations = 0, status = -77, badIndex = -77;
    Numbers work;
    Array<int> iwork;
};

// normal'x >= bound or = bound; bounds of variables come in this form too.
struct Constraint
{
    double excess(Numbers const & x) const
    {
        return std::inner_product(normal.begin(), normal.end(), x.begin(), -bound);
    }

    Numbers normal;
    double bound;
    bool isEquality;
    double multiplier;
    bool isActive;
};

std::vector<Constraint> constraintsOf(Program & p)
{
    std::vector<Constraint> constraints;
    for (int i = 0; i < p.m; ++i) {
        constraints.push_back({Numbers(p.n), p.b[i], i < p.me, p.lambda[i], p.activeSet[i] == 1});
        for (int j = 0; j < p.n; ++j)
            constraints.back().normal[j] = p.row(i, j);
    }
    for (int j = 0; j < p.n; ++j) {
        for (int sign : {-1, 1}) {
            double const bound = sign < 0 ? p.xl[j] : p.xu[j];
            if (std::abs(bound) < 1e9) {
                constraints.push_back({Numbers(p.n), -sign * bound, false, sign < 0 ? p.zl[j] : p.zu[j],
                                       p.activeSet[p.m + j] == sign});
                constraints.back().normal[j] = -sign;
            }
        }
    }
    return constraints;
}

double largestOf(Numbers const & values)
{
    return std::accumulate(values.begin(), values.end(), 1.0,
                           [](double a, double b) { return std::max(a, std::abs(b)); });
}

// The conditions of optimality, which are sufficient in a convex program, relative to `tolerance`.
void expectOptimal(Program & p, double tolerance)
{
    ASSERT_EQ(p.status, Solved);
    EXPECT_EQ(p.badIndex, 0);
    double const largest = largestOf(p.x);
    Numbers gradient = p.c, scale = p.c;
    for (int j = 0; j < p.n; ++j) {
        for (int i = 0; i < p.n; ++i) {
            gradient[j] += p.hessian(j, i) * p.x[i];
            scale[j] = std::abs(scale[j]) + std::abs(p.hessian(j, i)) * largest;
        }
    }
    double worst = 0;
    int active = 0;
    for (Constraint const & constraint : constraintsOf(p)) {
        double const excess = constraint.excess(p.x);
        double const noise =
            tolerance * p.n * largestOf(constraint.normal) * (largest + std::abs(constraint.bound));
        worst = std::max(worst, constraint.isEquality ? std::abs(excess) : -excess);
        EXPECT_GE(excess, -noise);
        EXPECT_LE(excess, constraint.isActive || constraint.isEquality ? noise : infinity);
        EXPECT_GE(constraint.multiplier, constraint.isEquality ? -infinity : 0);
        EXPECT_TRUE(constraint.isActive || constraint.multiplier == 0);
        active += constraint.isActive ? 1 : 0;
        for (int j = 0; j < p.n; ++j) {
            gradient[j] -= constraint.multiplier * constraint.normal[j];
            scale[j] += std::abs(constraint.multiplier * constraint.normal[j]);
        }
    }
    for (int j = 0; j < p.n; ++j)
        EXPECT_NEAR(gradient[j], 0, tolerance * (1 + scale[j]));
    EXPECT_EQ(p.nActive, active);
    EXPECT_NEAR(p.violation, worst, 1e-14 * p.n * largest);
    EXPECT_NEAR(p.f, p.objective(p.x), 1e-12 * (1 + std::abs(p.f)));
}

// Whether a program with bounds for all variables has a feasible corner, where as many constraints as
// variables meet.
bool isFeasible(Program & p)
{
    std::vector<Constraint> const constraints = constraintsOf(p);
    auto const n = static_cast<std::size_t>(p.n);
    for (unsigned subset = 0; subset < (1U << constraints.size()); ++subset) {
        DenseRows rows;
        for (std::size_t i = 0; i < constraints.size(); ++i) {
            if ((subset >> i & 1U) != 0) {
                rows.emplace_back(constraints[i].normal.begin(), constraints[i].normal.end());
                rows.back().push_back(constraints[i].bound);
            }
        }
        auto const corner = rows.size() == n ? solveDense(rows) : std::nullopt;
        Numbers x(p.n);
        if (corner)
            std::transform(corner->begin(), corner->end(), x.begin(), [](auto v) { return double(v); });
        if (corner &&
            std::all_of(constraints.begin(), constraints.end(), [&x](Constraint const & constraint) {
                double const excess = constraint.excess(x);
                return excess > -1e-9 && (!constraint.isEquality || excess < 1e-9);
            }))
            return true;
    }
    return false;
}

// A bounded program of small integers, rich in repetitions, dependent constraints and degenerate corners.
Program integerProgram(std::mt19937 & random)
{
    auto const number = [&random](int low, int high) {
        return std::uniform_int_distribution<int>(low, high)(random);
    };
    int const n = number(1, 3), m = number(0, 5);
    Program p(n, m, number(0, std::min(m, 2)));
    p.fillHessian(number(0, n), [&] { return number(-2, 2); });
    for (int j = 0; j < n; ++j) {
        p.c[j] = number(-4, 4);
        p.xl[j] = number(-3, 0);
        p.xu[j] = p.xl[j] + number(0, 4);
        p.x[j] = number(-9, 9);
    }
    for (int i = 0; i < m; ++i) {
        // Some rows are multiples of earlier ones.
        int const factor = i > 0 && number(0, 3) == 0 ? number(-2, 2) : 0;
        int const model = factor != 0 ? number(0, i - 1) : 0;
        for (int j = 0; j < n; ++j)
            p.row(i, j) = factor != 0 ? factor * p.row(model, j) : number(-2, 2);
        p.b[i] = factor != 0 && number(0, 1) == 0 ? factor * p.b[model] : number(-4, 2);
    }
    return p;
}

// A program that is feasible at a point made up first, where many constraints meet, and bounded below: by its
// bounds where the rank is 0, else by a c in the range of the Hessian.
Program feasibleProgram(std::mt19937 & random, int n, int m, int rank)
{
    std::normal_distribution<double> normal;
    std::uniform_int_distribution<int> die(0, 3);
    Program p(n, m, m / 8);
    p.fillHessian(rank, [&] { return normal(random); });
    auto const reach = [&] { return die(random) == 0 ? 0 : std::abs(normal(random)); };
    Numbers point(n);
    for (int j = 0; j < n; ++j) {
        point[j] = normal(random);
        p.x[j] = 10 * normal(random);
        p.xl[j] = rank > 0 && die(random) > 0 ? -infinity : point[j] - reach();
        p.xu[j] = rank > 0 && die(random) > 0 ? infinity : point[j] + reach();
        p.c[j] = rank > 0 ? 0 : normal(random);
    }
    for (int i = 0; i < n; ++i) {
        double const pull = normal(random);
        for (int j = 0; j < n; ++j)
            p.c[j] += pull * p.hessian(j, i);
    }
    for (int i = 0; i < m; ++i) {
        for (int j = 0; j < n; ++j) {
            p.row(i, j) = normal(random);
            p.b[i] += p.row(i, j) * point[j];
        }
        p.b[i] -= i < p.me ? 0 : reach();
    }
    return p;
}

} // namespace

TEST(QuadraticProgram, IsOptimalWhereverThereIsAFeasibleCorner)
{
    std::mt19937 random(51);
    int infeasible = 0;
    for (int trial = 0; trial < 4000; ++trial) {
        SCOPED_TRACE(trial);
        Program p = integerProgram(random);
        Numbers const start = p.x;
        bool const isSolvable = isFeasible(p);
        p.solve();
        if (!isSolvable) {
            ++infeasible;
            ASSERT_TRUE(p.status == Infeasible && p.badIndex >= 1 && p.badIndex <= p.m + p.n);
            continue;
        }
        expectOptimal(p, 1e-10);
        // From its own active set, and from a random one.
        for (bool isOwn : {true, false}) {
            for (int & flag : p.activeSet)
                flag = isOwn ? flag : std::uniform_int_distribution<int>(-1, 1)(random);
            p.x = start;
            p.solve(true);
            expectOptimal(p, 1e-10);
        }
        if (::testing::Test::HasFailure())
            return;
    }
    EXPECT_TRUE(infeasible > 500 && infeasible < 2500);
}

TEST(QuadraticProgram, IsOptimalForAnyRank)
{
    std::mt19937 random(52);
    for (int n : {1, 2, 5, 12, 40, 90}) {
        for (int rank : {0, 1, n / 2, n - 1, n, n + 5}) {
            SCOPED_TRACE(std::to_string(n) + " variables, rank " + std::to_string(rank));
            Program p = feasibleProgram(random, n, 2 * n, rank);
            p.solve();
            expectOptimal(p, 1e-9);
            int const cold = p.iterations;
            p.solve(true);
            expectOptimal(p, 1e-9);
            EXPECT_LE(p.iterations, 2 + cold / 4);
        }
    }
}

TEST(QuadraticProgram, DoesNotDependOnTheUnits)
{
    std::mt19937 random(53);
    std::uniform_int_distribution<int> exponent(-20, 20);
    for (int rank : {30, 20}) {
        Program p = feasibleProgram(random, 30, 50, rank), original = p;
        ASSERT_EQ(original.solve(), Solved);
        // Powers of 2, so that the scaled numbers are exact.
        Numbers units(p.n), rowUnits(p.m);
        for (Numbers * each : {&units, &rowUnits})
            std::generate(each->begin(), each->end(), [&] { return std::ldexp(1.0, exponent(random)); });
        for (int j = 0; j < p.n; ++j) {
            for (double * value : {&p.xl[j], &p.xu[j], &p.x[j]})
                *value /= units[j];
            p.c[j] *= units[j];
            for (int i = 0; i < p.m; ++i)
                p.row(i, j) *= units[j] * rowUnits[i];
            for (int i = 0; i < p.n; ++i)
                p.hessian(i, j) *= units[i] * units[j];
        }
        for (int i = 0; i < p.m; ++i)
            p.b[i] *= rowUnits[i];
        ASSERT_EQ(p.solve(), Solved);
        EXPECT_NEAR(p.f, original.f, 1e-8 * (1 + std::abs(original.f)));
    }
}

TEST(QuadraticProgram, TellsWhyThereIsNoSolution)
{
    std::mt19937 random(54);
    std::normal_distribution<double> normal;
    for (int trial = 0; trial < 60; ++trial) {
        SCOPED_TRACE(trial);
        int const n = 2 + trial / 3, m = 4 + trial % 7;
        // All variables can grow together without curvature and without meeting a constraint.
        Program p(n, m, 1);
        auto const setSum = [n](double wanted, auto element) {
            for (int j = 0; j < n; ++j)
                wanted -= element(j);
            element(n - 1) += wanted;
        };
        p.fillHessian(n, [&] { return normal(random); });
        for (int i = 0; i < n; ++i)
            setSum(0, [&](int j) -> double & { return p.hessian(i, j); });
        for (int j = 0; j < n; ++j) {
            setSum(0, [&](int i) -> double & { return p.hessian(i, j); });
            p.c[j] = normal(random);
            p.xl[j] = trial % 2 == 0 ? 0 : -infinity;
        }
        setSum(-1, [&](int j) -> double & { return p.c[j]; });
        for (int i = 0; i < m; ++i) {
            for (int j = 0; j < n; ++j)
                p.row(i, j) = normal(random);
            setSum(i < p.me ? 0 : 1, [&](int j) -> double & { return p.row(i, j); });
            p.b[i] = i < p.me ? 0 : -1;
        }
        EXPECT_EQ(p.solve(), Unbounded);
        EXPECT_LE(p.violation, 1e-10);
        // Curvature of slightly less than 0 along the ray.
        for (int i = 0; i < n * n; ++i)
            p.hessian(i / n, i % n) -= 1e-8;
        EXPECT_EQ(p.solve(), NotConvex);
    }
    // The last variable falls for ever, but long after the others, which move by 1e9 together.
    Program p(7, 0, 0);
    double const factor[7][2] = {{2, -2}, {2, 2}, {-1, 0}, {2, -2}, {-2, -2}, {-2, 1}, {0, 0}};
    double const c[7] = {2, 0, 0, 0, 0, 1, 1}, start[7] = {-1, -2, 1, 2, 2, 0, 2};
    p.fillHessian(2, [element = factor[0]]() mutable { return *element++; });
    std::copy_n(c, 7, p.c.begin());
    std::copy_n(start, 7, p.x.begin());
    p.xl[0] = -1;
    p.xl[4] = -2;
    EXPECT_EQ(p.solve(), Unbounded);
    // Two rows that are nearly parallel leave (0, 1), which the third misses by a fifth.
    for (double const tolerance : {0.0, 1e-6, 1e-4}) {
        Program flat(2, 3, 3);
        for (int i = 0; i < 3; ++i) {
            flat.row(i, 0) = i == 0 ? 4 : i == 1 ? 3.875 : 1;
            flat.row(i, 1) = 1;
            flat.b[i] = i == 2 ? 1.2 : 1;
        }
        flat.tol = tolerance;
        EXPECT_EQ(flat.solve(), Infeasible);
    }
}

TEST(QuadraticProgram, AnswersBadArgumentsAndHugeNumbers)
{
    std::mt19937 random(55);
    Program const good = feasibleProgram(random, 6, 9, 4);
    double const nan = NAN;
    Numbers Program::*const numbers[] = {&Program::h,  &Program::c,  &Program::a, &Program::b,
                                         &Program::xl, &Program::xu, &Program::x};
    for (int i = 0; i < 7; ++i) {
        for (double value : {nan, infinity, 1e300, 1e160, -1e155}) {
            Program p = good;
            (p.*numbers[i])[0] = value;
            int const status = p.solve();
            bool const isBound = i == 4 || i == 5;
            bool const isBad = std::isnan(value) || (std::isinf(value) && !isBound);
            EXPECT_EQ(status == BadArgument, isBad) << i << " " << value;
            EXPECT_TRUE(isBad ? p.badIndex == 8 + i : status != Solved || std::isfinite(p.f));
        }
    }
    Program p = good;
    int warm = 0, lwork = 3 * 36 + 13 * 6 + 4 * 9, liwork = 3 * 6 + 9;
    Numbers work(lwork);
    Array<int> iwork(liwork);
    p.call(warm, work.data(), --lwork, iwork.data(), liwork);
    EXPECT_EQ(p.status, WorkSpaceTooSmall);
    ++lwork;
    p.call(warm, nullptr, lwork, iwork.data(), liwork);
    EXPECT_EQ(p.badIndex, 27);
    p.call(warm, work.data(), lwork, iwork.data(), liwork);
    expectOptimal(p, 1e-9);
    p.x = good.x;
    for (auto const member : numbers)
        EXPECT_EQ(p.*member, good.*member);
    p = good;
    p.maxIter = 1;
    EXPECT_EQ(p.solve(), IterationLimit);

    // Contradictions within one constraint.
    p = good;
    p.xl[2] = 1;
    p.xu[2] = 0.5;
    EXPECT_TRUE(p.solve() == Infeasible && p.badIndex == 9 + 3);
    for (double bound : {1e-3, -1e-3}) {
        p = good;
        for (int j = 0; j < p.n; ++j)
            p.row(7, j) = 0;
        p.b[7] = bound;
        EXPECT_TRUE(bound < 0 ? p.solve() == Solved : p.solve() == Infeasible && p.badIndex == 8);
    }
}
