// SPDX-License-Identifier: Apache-2.0
#include <QZmath/Fitting/QuadraticProgram.h>

#include <support/DenseSolve.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <thread>
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

double const infinity = std::numeric_limits<double>::infinity();

/// A program with room for its results; leading dimensions are larger than needed.
struct Program
{
    Program(int variables, int rows, int equalities)
        : n(variables), m(rows), me(equalities), ldh(variables + 1), lda(rows + 2), h(size(ldh * n)),
          c(size(n)), a(size(lda * n)), b(size(m)), xl(size(n), -infinity), xu(size(n), infinity), x(size(n)),
          lambda(size(m)), zl(size(n)), zu(size(n)), activeSet(size(m + n))
    {}

    static std::size_t size(int count) { return static_cast<std::size_t>(count); }
    double & hessian(int i, int j) { return h[size(j * ldh + i)]; }
    double & row(int i, int j) { return a[size(j * lda + i)]; }
    double value(int i, std::vector<double> const & at)
    {
        double sum = 0;
        for (int j = 0; j < n; ++j)
            sum += row(i, j) * at[size(j)];
        return sum;
    }
    double objective(std::vector<double> const & at)
    {
        double sum = 0;
        for (int i = 0; i < n; ++i) {
            sum += c[size(i)] * at[size(i)];
            for (int j = 0; j < n; ++j)
                sum += 0.5 * hessian(i, j) * at[size(i)] * at[size(j)];
        }
        return sum;
    }

    /// H = G G' for a G of `rank` columns, which `number` makes up.
    template <class Number>
    void fillHessian(int rank, Number number)
    {
        std::vector<double> factor(size(n * rank));
        for (double & element : factor)
            element = number();
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j) {
                hessian(i, j) = 0;
                for (int k = 0; k < rank; ++k)
                    hessian(i, j) += factor[size(i * rank + k)] * factor[size(j * rank + k)];
            }
        }
    }

    int solve(bool isWarm = false)
    {
        int warm = isWarm ? 1 : 0, lwork = -1, liwork = -1, neededIntegers = 0;
        double needed = 0;
        call(warm, &needed, lwork, &neededIntegers, liwork);
        EXPECT_EQ(status, Solved);
        work.assign(static_cast<std::size_t>(needed), std::numeric_limits<double>::quiet_NaN());
        iwork.assign(size(neededIntegers), -77);
        lwork = static_cast<int>(needed);
        liwork = neededIntegers;
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
    std::vector<double> h, c, a, b, xl, xu, x, lambda, zl, zu;
    double f = 0, tol = 0, violation = 0;
    std::vector<int> activeSet;
    int nActive = 0, iterations = 0, status = -77, badIndex = -77;
    std::vector<double> work;
    std::vector<int> iwork;
};

/// The conditions of optimality, which are sufficient in a convex program, relative to `tolerance`.
void expectOptimal(Program & p, double tolerance)
{
    ASSERT_EQ(p.status, Solved);
    EXPECT_EQ(p.badIndex, 0);
    double largest = 1, largestMultiplier = 1;
    for (double value : p.x)
        largest = std::max(largest, std::abs(value));
    for (auto const * multipliers : {&p.lambda, &p.zl, &p.zu}) {
        for (double value : *multipliers)
            largestMultiplier = std::max(largestMultiplier, std::abs(value));
    }
    double worst = 0;
    int active = 0;
    for (int i = 0; i < p.m; ++i) {
        std::size_t const at = Program::size(i);
        double norm = 0;
        for (int j = 0; j < p.n; ++j)
            norm += std::abs(p.row(i, j));
        double const excess = p.value(i, p.x) - p.b[at],
                     noise = tolerance * (norm * largest + std::abs(p.b[at]));
        worst = std::max(worst, i < p.me ? std::abs(excess) : -excess);
        EXPECT_GE(i < p.me ? -std::abs(excess) : excess, -noise) << "row " << i;
        if (i >= p.me) {
            EXPECT_GE(p.lambda[at], 0);
        }
        if (p.activeSet[at] == 0) {
            EXPECT_EQ(p.lambda[at], 0);
        } else {
            EXPECT_EQ(p.activeSet[at], 1);
            EXPECT_LE(std::abs(excess), noise);
            ++active;
        }
    }
    for (int j = 0; j < p.n; ++j) {
        std::size_t const at = Program::size(j);
        double gradient = p.c[at], scale = std::abs(gradient);
        for (int i = 0; i < p.n; ++i) {
            gradient += p.hessian(j, i) * p.x[Program::size(i)];
            scale += std::abs(p.hessian(j, i)) * largest;
        }
        for (int i = 0; i < p.m; ++i) {
            gradient -= p.row(i, j) * p.lambda[Program::size(i)];
            scale += std::abs(p.row(i, j)) * largestMultiplier;
        }
        EXPECT_NEAR(gradient, p.zl[at] - p.zu[at], tolerance * (scale + largestMultiplier));
        EXPECT_GE(p.zl[at], 0);
        EXPECT_GE(p.zu[at], 0);
        EXPECT_GE(p.x[at], std::abs(p.xl[at]) < 1e9 ? p.xl[at] - tolerance * largest : -infinity);
        EXPECT_LE(p.x[at], std::abs(p.xu[at]) < 1e9 ? p.xu[at] + tolerance * largest : infinity);
        worst = std::max({worst, std::abs(p.xl[at]) < 1e9 ? p.xl[at] - p.x[at] : 0.0,
                          std::abs(p.xu[at]) < 1e9 ? p.x[at] - p.xu[at] : 0.0});
        int const flag = p.activeSet[Program::size(p.m + j)];
        active += flag != 0;
        if (flag != 0) {
            EXPECT_EQ(p.x[at], flag < 0 ? p.xl[at] : p.xu[at]);
        }
        if (p.zl[at] > 0) {
            EXPECT_EQ(flag, -1);
        }
        if (p.zu[at] > 0) {
            EXPECT_EQ(flag, 1);
        }
    }
    EXPECT_EQ(p.nActive, active);
    EXPECT_NEAR(p.violation, worst, 1e-14 * (1 + largest));
    EXPECT_NEAR(p.f, p.objective(p.x), 1e-12 * (1 + std::abs(p.f)));
}

/// The least objective over all points that are feasible and stationary on some set of constraints taken for
/// equations; nothing when there is no feasible one. Right when all variables are bounded.
std::optional<double> enumerate(Program & p)
{
    struct Constraint
    {
        std::vector<long double> normal;
        long double bound;
        bool isEquality;
    };
    std::vector<Constraint> constraints;
    for (int i = 0; i < p.m; ++i) {
        Constraint constraint = {{}, p.b[Program::size(i)], i < p.me};
        for (int j = 0; j < p.n; ++j)
            constraint.normal.push_back(p.row(i, j));
        constraints.push_back(constraint);
    }
    for (int j = 0; j < p.n; ++j) {
        for (int sign : {1, -1}) {
            Constraint constraint = {std::vector<long double>(Program::size(p.n)),
                                     sign * (sign > 0 ? p.xl : p.xu)[Program::size(j)], false};
            constraint.normal[Program::size(j)] = sign;
            constraints.push_back(constraint);
        }
    }
    std::optional<double> best;
    for (unsigned subset = 0; subset < (1U << constraints.size()); ++subset) {
        std::vector<Constraint const *> chosen;
        for (std::size_t i = 0; i < constraints.size(); ++i) {
            if ((subset >> i & 1U) != 0)
                chosen.push_back(&constraints[i]);
        }
        std::size_t const n = Program::size(p.n), order = n + chosen.size();
        if (chosen.size() > n)
            continue;
        DenseRows rows(order, std::vector<long double>(order + 1));
        for (std::size_t i = 0; i < n; ++i) {
            for (std::size_t j = 0; j < n; ++j)
                rows[i][j] = p.hessian(static_cast<int>(i), static_cast<int>(j));
            rows[i][order] = -p.c[i];
            for (std::size_t k = 0; k < chosen.size(); ++k)
                rows[i][n + k] = rows[n + k][i] = chosen[k]->normal[i];
        }
        for (std::size_t k = 0; k < chosen.size(); ++k)
            rows[n + k][order] = chosen[k]->bound;
        auto const solution = solveDense(rows);
        if (!solution)
            continue;
        bool isFeasible = true;
        for (Constraint const & constraint : constraints) {
            long double excess = -constraint.bound;
            for (std::size_t j = 0; j < n; ++j)
                excess += constraint.normal[j] * (*solution)[j];
            isFeasible = isFeasible && excess > -1e-9L && (!constraint.isEquality || excess < 1e-9L);
        }
        if (isFeasible) {
            std::vector<double> x;
            for (std::size_t j = 0; j < n; ++j)
                x.push_back(static_cast<double>((*solution)[j]));
            best = std::min(best.value_or(infinity), p.objective(x));
        }
    }
    return best;
}

/// A bounded program of small integers, rich in repetitions, dependent constraints and degenerate corners.
Program integerProgram(std::mt19937 & random)
{
    auto const number = [&random](int low, int high) {
        return std::uniform_int_distribution<int>(low, high)(random);
    };
    int const n = number(1, 3), m = number(0, 5);
    Program p(n, m, number(0, std::min(m, 2)));
    p.fillHessian(number(0, n), [&] { return number(-2, 2); });
    for (int j = 0; j < n; ++j) {
        p.c[Program::size(j)] = number(-4, 4);
        p.xl[Program::size(j)] = number(-3, 0);
        p.xu[Program::size(j)] = p.xl[Program::size(j)] + number(0, 4);
        p.x[Program::size(j)] = number(-9, 9);
    }
    for (int i = 0; i < m; ++i) {
        // Some rows are multiples of earlier ones.
        int const factor = i > 0 && number(0, 3) == 0 ? number(-2, 2) : 0;
        int const model = factor != 0 ? number(0, i - 1) : 0;
        for (int j = 0; j < n; ++j)
            p.row(i, j) = factor != 0 ? factor * p.row(model, j) : number(-2, 2);
        p.b[Program::size(i)] =
            factor != 0 && number(0, 1) == 0 ? factor * p.b[Program::size(model)] : number(-4, 2);
    }
    return p;
}

/// A program made around a solution: x and multipliers are chosen first, c and b after them.
Program programWithSolution(std::mt19937 & random, int n, int m, int rank, double & optimum)
{
    std::normal_distribution<double> normal;
    std::uniform_int_distribution<int> die(0, 3);
    Program p(n, m, m / 8);
    p.fillHessian(rank, [&] { return normal(random); });
    std::vector<double> solution(Program::size(n));
    for (int j = 0; j < n; ++j) {
        std::size_t const at = Program::size(j);
        solution[at] = normal(random);
        p.x[at] = 10 * normal(random);
        double multiplier = 0;
        if (die(random) == 0) {
            p.xl[at] = solution[at];
            p.xu[at] = die(random) == 0 ? solution[at] : infinity;
            multiplier = std::abs(normal(random));
        } else if (die(random) == 0) {
            p.xu[at] = solution[at] + (die(random) == 0 ? 1 : 0);
            multiplier = p.xu[at] == solution[at] ? -std::abs(normal(random)) : 0;
        }
        p.c[at] += multiplier;
    }
    for (int i = 0; i < m; ++i) {
        for (int j = 0; j < n; ++j)
            p.row(i, j) = normal(random);
        // A third active, a third of these without a multiplier: more constraints than variables may meet.
        bool const isActive = i < p.me || die(random) == 0;
        double const multiplier = !isActive || i % 3 == 0 ? 0
                                  : i < p.me              ? normal(random)
                                                          : std::abs(normal(random));
        p.b[Program::size(i)] = p.value(i, solution) - (isActive ? 0 : std::abs(normal(random)));
        for (int j = 0; j < n; ++j)
            p.c[Program::size(j)] += multiplier * p.row(i, j);
    }
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j)
            p.c[Program::size(i)] -= p.hessian(i, j) * solution[Program::size(j)];
    }
    optimum = p.objective(solution);
    return p;
}

} // namespace

TEST(QuadraticProgram, AgreesWithTheEnumerationOfActiveSets)
{
    std::mt19937 random(51);
    int infeasible = 0;
    for (int trial = 0; trial < 4000; ++trial) {
        SCOPED_TRACE(trial);
        Program p = integerProgram(random);
        std::vector<double> const start = p.x;
        std::optional<double> const optimum = enumerate(p);
        p.solve();
        if (!optimum) {
            ++infeasible;
            ASSERT_EQ(p.status, Infeasible);
            EXPECT_GE(p.badIndex, 1);
            EXPECT_LE(p.badIndex, p.m + p.n);
            continue;
        }
        expectOptimal(p, 1e-11);
        EXPECT_NEAR(p.f, *optimum, 1e-10);
        // From its own active set, and from a random one.
        for (bool isOwn : {true, false}) {
            for (int & flag : p.activeSet)
                flag = isOwn ? flag : std::uniform_int_distribution<int>(-1, 1)(random);
            p.x = start;
            p.solve(true);
            expectOptimal(p, 1e-11);
            EXPECT_NEAR(p.f, *optimum, 1e-10);
        }
        if (::testing::Test::HasFailure())
            return;
    }
    EXPECT_GT(infeasible, 500);
    EXPECT_LT(infeasible, 2500);
}

TEST(QuadraticProgram, ReachesKnownSolutionsOfAnyRank)
{
    std::mt19937 random(52);
    for (int n : {1, 2, 5, 12, 40, 90}) {
        for (int rank : {0, 1, n / 2, n - 1, n, n + 5}) {
            SCOPED_TRACE(std::to_string(n) + " variables, rank " + std::to_string(rank));
            double optimum = 0;
            Program p = programWithSolution(random, n, 2 * n, rank, optimum);
            p.solve();
            expectOptimal(p, 1e-9);
            EXPECT_NEAR(p.f, optimum, 1e-9 * (1 + std::abs(optimum)));
            int const cold = p.iterations;
            p.solve(true);
            expectOptimal(p, 1e-9);
            EXPECT_NEAR(p.f, optimum, 1e-9 * (1 + std::abs(optimum)));
            EXPECT_LE(p.iterations, 2 + cold / 4);
        }
    }
}

TEST(QuadraticProgram, DoesNotDependOnTheUnits)
{
    std::mt19937 random(53);
    std::uniform_int_distribution<int> exponent(-20, 20);
    for (int rank : {30, 20}) {
        double optimum = 0;
        Program p = programWithSolution(random, 30, 50, rank, optimum);
        // Powers of 2, so that the scaled numbers are exact.
        for (int j = 0; j < p.n; ++j) {
            double const unit = std::ldexp(1.0, exponent(random));
            for (double * value : {&p.xl[Program::size(j)], &p.xu[Program::size(j)], &p.x[Program::size(j)]})
                *value /= unit;
            p.c[Program::size(j)] *= unit;
            for (int i = 0; i < p.m; ++i)
                p.row(i, j) *= unit;
            for (int i = 0; i < p.n; ++i) {
                p.hessian(i, j) *= unit;
                p.hessian(j, i) *= unit;
            }
        }
        for (int i = 0; i < p.m; ++i) {
            double const unit = std::ldexp(1.0, exponent(random));
            p.b[Program::size(i)] *= unit;
            for (int j = 0; j < p.n; ++j)
                p.row(i, j) *= unit;
        }
        ASSERT_EQ(p.solve(), Solved);
        EXPECT_NEAR(p.f, optimum, 1e-8 * (1 + std::abs(optimum)));
    }
}

TEST(QuadraticProgram, TellsWhyThereIsNoSolution)
{
    std::mt19937 random(54);
    std::normal_distribution<double> normal;
    for (int trial = 0; trial < 60; ++trial) {
        SCOPED_TRACE(trial);
        int const n = 2 + trial / 3, m = 4 + trial % 7;
        // A ray without curvature, along which the objective falls and no constraint is met.
        Program p(n, m, 1);
        std::vector<double> ray(Program::size(n));
        double length2 = 0, slope = 0;
        for (double & component : ray) {
            component = normal(random);
            length2 += component * component;
        }
        auto const project = [&](auto element) {
            double along = 0;
            for (int j = 0; j < n; ++j)
                along += element(j) * ray[Program::size(j)];
            for (int j = 0; j < n; ++j)
                element(j) -= along / length2 * ray[Program::size(j)];
            return along;
        };
        p.fillHessian(n, [&] { return normal(random); });
        for (int i = 0; i < n; ++i)
            project([&](int j) -> double & { return p.hessian(i, j); });
        for (int i = 0; i < n; ++i)
            project([&](int j) -> double & { return p.hessian(j, i); });
        for (int j = 0; j < n; ++j) {
            p.c[Program::size(j)] = normal(random);
            slope += p.c[Program::size(j)] * ray[Program::size(j)];
            (ray[Program::size(j)] > 0 ? p.xl : p.xu)[Program::size(j)] = 0;
        }
        for (int j = 0; j < n && slope > 0; ++j)
            p.c[Program::size(j)] *= -1;
        for (int i = 0; i < m; ++i) {
            for (int j = 0; j < n; ++j)
                p.row(i, j) = normal(random);
            double const along = project([&](int j) -> double & { return p.row(i, j); });
            for (int j = 0; j < n && i >= p.me; ++j)
                p.row(i, j) += std::abs(along) * ray[Program::size(j)];
            p.b[Program::size(i)] = i < p.me ? 0 : -std::abs(normal(random));
        }
        EXPECT_EQ(p.solve(), Unbounded);
        EXPECT_LE(p.violation, 1e-10);

        // One more row contradicts a positive combination of the others.
        Program q(n, m + 1, 1);
        q.h = p.h;
        q.c = p.c;
        double bound = 0;
        for (int i = 0; i < m; ++i) {
            double const multiplier = i < q.me ? normal(random) : std::abs(normal(random));
            q.b[Program::size(i)] = normal(random);
            bound -= multiplier * q.b[Program::size(i)];
            for (int j = 0; j < n; ++j) {
                q.row(i, j) = normal(random);
                q.row(m, j) -= multiplier * q.row(i, j);
            }
        }
        q.b[Program::size(m)] = bound + 1e-6;
        EXPECT_EQ(q.solve(), Infeasible);
        EXPECT_GE(q.badIndex, 1);
        EXPECT_LE(q.badIndex, m + 1);

        // Curvature of slightly less than 0 along the ray.
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < n; ++j)
                p.hessian(i, j) -= 1e-8 * ray[Program::size(i)] * ray[Program::size(j)];
        }
        EXPECT_EQ(p.solve(), NotConvex);
    }
}

TEST(QuadraticProgram, AnswersBadArgumentsAndHugeNumbers)
{
    std::mt19937 random(55);
    double optimum = 0;
    Program const good = programWithSolution(random, 6, 9, 4, optimum);
    double const nan = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> Program::*const numbers[] = {&Program::h,  &Program::c,  &Program::a, &Program::b,
                                                     &Program::xl, &Program::xu, &Program::x};
    for (int i = 0; i < 7; ++i) {
        for (double value : {nan, infinity, 1e300, 1e160, -1e155}) {
            Program p = good;
            (p.*numbers[i])[0] = value;
            int const status = p.solve();
            bool const isBound = i == 4 || i == 5;
            if (std::isnan(value) || (std::isinf(value) && !isBound)) {
                EXPECT_EQ(status, BadArgument);
                EXPECT_EQ(p.badIndex, 8 + i);
            } else {
                EXPECT_NE(status, BadArgument);
            }
        }
    }
    struct Change
    {
        int Program::*size;
        int value;
        int argument;
    };
    for (Change const & change : {Change{&Program::me, 10, 3}, Change{&Program::me, -1, 3},
                                  Change{&Program::ldh, 5, 4}, Change{&Program::lda, 8, 5}}) {
        Program p = good;
        p.*change.size = change.value;
        EXPECT_EQ(p.solve(), BadArgument);
        EXPECT_EQ(p.badIndex, change.argument);
    }
    Program p = good;
    int warm = 0, lwork = 3 * 36 + 13 * 6 + 4 * 9, liwork = 3 * 6 + 9;
    std::vector<double> work(Program::size(lwork));
    std::vector<int> iwork(Program::size(liwork));
    for (int * size : {&lwork, &liwork}) {
        --*size;
        p.call(warm, work.data(), lwork, iwork.data(), liwork);
        EXPECT_EQ(p.status, WorkSpaceTooSmall);
        EXPECT_EQ(p.badIndex, size == &lwork ? 28 : 30);
        ++*size;
    }
    p.call(warm, nullptr, lwork, iwork.data(), liwork);
    EXPECT_EQ(p.badIndex, 27);
    p.call(warm, work.data(), lwork, iwork.data(), liwork);
    expectOptimal(p, 1e-9);
    for (auto const member : numbers) {
        if (member != &Program::x) {
            EXPECT_EQ(p.*member, good.*member);
        }
    }
    p = good;
    p.maxIter = 1;
    EXPECT_EQ(p.solve(), IterationLimit);

    // Contradictions within one constraint.
    p = good;
    p.xl[2] = 1;
    p.xu[2] = 0.5;
    EXPECT_EQ(p.solve(), Infeasible);
    EXPECT_EQ(p.badIndex, 9 + 3);
    p = good;
    for (int j = 0; j < p.n; ++j)
        p.row(7, j) = 0;
    p.b[7] = 1e-3;
    EXPECT_EQ(p.solve(), Infeasible);
    EXPECT_EQ(p.badIndex, 8);
    p.b[7] = -1e-3;
    EXPECT_EQ(p.solve(), Solved);
}

TEST(QuadraticProgram, GivesTheSameBitsOnSeveralThreads)
{
    std::mt19937 random(56);
    double optimum = 0;
    Program alone = programWithSolution(random, 60, 100, 50, optimum);
    std::vector<Program> programs(4, alone);
    alone.solve();
    std::vector<std::thread> threads;
    for (Program & program : programs)
        threads.emplace_back([&program] { program.solve(); });
    for (std::thread & thread : threads)
        thread.join();
    for (Program const & program : programs) {
        EXPECT_EQ(program.x, alone.x);
        EXPECT_EQ(program.lambda, alone.lambda);
    }
}
