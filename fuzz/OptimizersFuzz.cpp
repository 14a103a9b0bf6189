// SPDX-License-Identifier: Apache-2.0

// Quadratic programs, the method of Levenberg and Marquardt, and the ascent of the smallest function, on
// small problems with any numbers. A program that is solved fulfils its conditions of optimality, and no
// search ends worse than it started.

#include <QZmath/Fitting/LevenbergMarquardt.h>
#include <QZmath/Fitting/MinMaxOptimizer.h>
#include <QZmath/Fitting/QuadraticProgram.h>

#include "Input.h"

#include <memory>

namespace
{

using namespace qz_fuzz;
using REmath::Point3D_d;

struct Program
{
    int n, m, me, ldh, lda, maxIter, warm;
    std::vector<double> h, c, a, b, xl, xu, x, lambda, zl, zu;
    double f = 0, tol = 0, violation = 0;
    std::vector<int> activeSet;
    int nActive = 0, iterations = 0, status = -1, badIndex = -1, print = 0;
    std::vector<double> work;
    std::vector<int> iwork;

    void run()
    {
        int lwork = int(work.size()), liwork = int(iwork.size());
        QLPoptimize(&n, &m, &me, &ldh, &lda, &maxIter, &warm, h.data(), c.data(), a.data(), b.data(),
                    xl.data(), xu.data(), x.data(), lambda.data(), zl.data(), zu.data(), &f, &tol, &violation,
                    activeSet.data(), &nActive, &iterations, &status, &badIndex, &print, work.data(), &lwork,
                    iwork.data(), &liwork, nullptr, nullptr);
    }
};

double gentle(Input & input) { return (input.byte() - 128) / 16.0; }

std::vector<double> numbers(Input & input, int count, bool isGentle)
{
    std::vector<double> result;
    for (int k = 0; k < count; ++k)
        result.push_back(isGentle ? gentle(input) : input.number());
    return result;
}

void checkSolution(Program const & p, bool isGentle)
{
    auto const at = [](std::vector<double> const & values, int k) { return values[std::size_t(k)]; };
    double violation = 0, scale = 1;
    for (int i = 0; i < p.m; ++i) {
        double row = -at(p.b, i), size = std::fabs(at(p.b, i));
        for (int j = 0; j < p.n; ++j) {
            row += at(p.a, i + p.lda * j) * at(p.x, j);
            size += std::fabs(at(p.a, i + p.lda * j) * at(p.x, j));
        }
        violation = std::max(violation, i < p.me ? std::fabs(row) : -row);
        scale = std::max(scale, size);
        require(i < p.me || at(p.lambda, i) >= 0, "multipliers of inequalities are not negative");
    }
    for (int j = 0; j < p.n; ++j) {
        if (std::fabs(at(p.xl, j)) < 1e9)
            violation = std::max(violation, at(p.xl, j) - at(p.x, j));
        if (std::fabs(at(p.xu, j)) < 1e9)
            violation = std::max(violation, at(p.x, j) - at(p.xu, j));
        require(at(p.zl, j) >= 0 && at(p.zu, j) >= 0, "multipliers of bounds are not negative");
        require(std::isfinite(at(p.x, j)), "a solution is finite");
    }
    double const tolerance = std::max(1e-6, 10 * p.tol);
    require(std::fabs(violation - p.violation) <= 1e-9 * scale, "the violation is the greatest one");
    if (!isGentle)
        return;
    require(violation <= tolerance * scale, "a solution is feasible");
    for (int j = 0; j < p.n; ++j) {
        double gradient = at(p.c, j) - at(p.zl, j) + at(p.zu, j), size = std::fabs(at(p.c, j)) + 1;
        for (int k = 0; k < p.n; ++k) {
            double const term = (at(p.h, j + p.ldh * k) + at(p.h, k + p.ldh * j)) / 2 * at(p.x, k);
            gradient += term;
            size += std::fabs(term);
        }
        for (int i = 0; i < p.m; ++i) {
            gradient -= at(p.a, i + p.lda * j) * at(p.lambda, i);
            size += std::fabs(at(p.a, i + p.lda * j) * at(p.lambda, i));
        }
        require(std::fabs(gradient) <= tolerance * (size + std::fabs(at(p.zl, j)) + std::fabs(at(p.zu, j))),
                "the gradient is that of the multipliers");
    }
}

void checkProgram(Input & input)
{
    Program p;
    bool const isGentle = input.byte() % 4 != 0;
    p.n = 1 + input.upTo(4);
    p.m = input.upTo(6);
    p.me = input.upTo(p.m);
    p.ldh = p.n + input.upTo(1);
    p.lda = std::max(1, p.m) + input.upTo(1);
    p.maxIter = input.upTo(1) * input.byte();
    p.warm = input.upTo(1);
    p.h.resize(std::size_t(p.ldh * p.n));
    // Of products with a factor, and so semidefinite, or anything.
    std::vector<double> const factor = numbers(input, input.flag() ? p.n * input.upTo(p.n) : 0, isGentle);
    if (factor.empty() && input.flag()) {
        p.h = numbers(input, p.ldh * p.n, isGentle);
    } else {
        for (int i = 0; i < p.n; ++i)
            for (int j = 0; j < p.n; ++j)
                for (std::size_t k = 0; k < factor.size(); k += std::size_t(p.n))
                    p.h[std::size_t(i + p.ldh * j)] +=
                        factor[k + std::size_t(i)] * factor[k + std::size_t(j)];
    }
    p.c = numbers(input, p.n, isGentle);
    p.a = numbers(input, p.lda * p.n, isGentle);
    p.b = numbers(input, p.m, isGentle);
    for (int j = 0; j < p.n; ++j) {
        double const lower = isGentle ? gentle(input) : input.number();
        p.xl.push_back(input.flag() ? lower : -2e9);
        p.xu.push_back(input.flag() ? lower + std::fabs(gentle(input)) : 2e9);
    }
    p.x = numbers(input, p.n, isGentle);
    if (input.flag())
        p.tol = isGentle ? std::ldexp(1.0, -7 - input.upTo(40)) : input.number();
    p.lambda.resize(std::size_t(p.m) + 1);
    p.zl.resize(std::size_t(p.n));
    p.zu.resize(std::size_t(p.n));
    for (int k = 0; k < p.m + p.n; ++k)
        p.activeSet.push_back(p.warm == 1 ? input.upTo(2) - 1 : 0);
    p.work.resize(std::size_t(3 * p.n * p.n + 13 * p.n + 4 * p.m));
    p.iwork.resize(std::size_t(3 * p.n + p.m));
    if (input.byte() == 255)
        p.iwork.pop_back();

    Program again = p;
    p.run();
    require(p.status >= 0 && p.status <= 6, "a status is one that is documented");
    require(p.badIndex >= 0 && p.badIndex <= std::max(32, p.m + p.n), "a bad index is in range");
    require(p.status != 1 || !isGentle || p.maxIter > 0 || p.tol > 0,
            "an ordinary program is solved or refused");
    if (p.status <= 3)
        require(std::count(p.activeSet.begin(), p.activeSet.end(), 0) == p.m + p.n - p.nActive,
                "active constraints are counted");
    if (p.status == 0)
        checkSolution(p, isGentle);
    again.run();
    require(
        Bits(p.x, p.lambda, p.zl, p.zu, p.status, p.iterations, p.activeSet) ==
            Bits(again.x, again.lambda, again.zl, again.zu, again.status, again.iterations, again.activeSet),
        "a program has the same bits again");
}

// Sums of squares and a sine; gentle at the start, hostile in what the input has.
class Residuals : public REmath::Functor7<int, int, int, double const *, double *, double *, int, int>
{
public:
    explicit Residuals(std::vector<double> coefficients) : m_coefficients(std::move(coefficients)) {}
    mutable int calls = 0;

    int operator()(int m, int n, double const * x, double * f, double * jacobian, int ldfjac,
                   int flag) const override
    {
        ++calls;
        for (int i = 0; i < m; ++i) {
            double const a = coefficient(3 * i), b = coefficient(3 * i + 1), c = coefficient(3 * i + 2);
            double const u = x[i % n], v = x[(i + 1) % n];
            if (flag == 1)
                f[i] = a * u * u + b * std::sin(v) + c;
            for (int j = 0; flag == 2 && j < n; ++j)
                jacobian[i + ldfjac * j] =
                    (j == i % n ? 2 * a * u : 0.0) + (j == (i + 1) % n ? b * std::cos(v) : 0.0);
        }
        return m_coefficients.size() > 2 && m_coefficients[0] == 3.0 && calls > 5 ? -3 : 0;
    }

private:
    double coefficient(int k) const
    {
        return m_coefficients.empty() ? 1.0 : m_coefficients[std::size_t(k) % m_coefficients.size()];
    }
    std::vector<double> m_coefficients;
};

void checkLeastSquares(Input & input)
{
    int const n = input.upTo(4), m = input.upTo(6);
    Residuals const functor(numbers(input, input.upTo(12), false));
    double const tolerance = input.flag() ? 1e-9 : input.number();
    std::vector<double> const start = numbers(input, n + 1, false);
    std::vector<double> x = start, f(std::size_t(m) + 1), at(f);
    int const result = REmath::lmder1_adapter(functor, m, n, x.data(), f.data(), tolerance);
    require((result >= 0 && result <= 7) || result == -3, "a result is one that is documented");
    require((result == 0) == (n < 1 || m < n || tolerance < 0 || std::isnan(tolerance)) || result != 0,
            "what cannot be searched is refused");
    if (n < 1 || m < n || result < 1)
        return;
    require(functor.calls <= 200 * (n + 1) + 8, "evaluations are bounded");
    Residuals const fresh = functor;
    fresh.calls = -1000000;
    auto const sum = [m](std::vector<double> const & values) {
        double squares = 0;
        for (int i = 0; i < m; ++i)
            squares += values[std::size_t(i)] * values[std::size_t(i)];
        return squares;
    };
    fresh(m, n, x.data(), at.data(), nullptr, m, 1);
    require(Bits(std::vector<double>(f.begin(), f.end() - 1)) ==
                    Bits(std::vector<double>(at.begin(), at.end() - 1)) ||
                std::isnan(sum(f)),
            "the functions are those at the solution");
    fresh(m, n, start.data(), at.data(), nullptr, m, 1);
    require(!(sum(f) > sum(at)), "no search ends worse than it started");
}

class Criterion : public REmath::CMinMaxTask::Function
{
public:
    Criterion(Point3D_d const & centre, double weight, double bend)
        : m_centre(centre), m_weight(weight), m_bend(bend)
    {}
    double operator()(Point3D_d const & p) const override
    {
        Point3D_d const d = p - m_centre;
        return m_weight * d.x() + m_bend * dot(d, d) + d.y();
    }

private:
    Point3D_d m_centre;
    double m_weight, m_bend;
};

class Flattener : public REmath::CMinMaxTask::IProjector
{
    void Project(Point3D_d & point) const override { point.z() = 0.5; }
};

void checkMinMax(Input & input)
{
    REmath::CMinMaxTask task;
    std::vector<std::unique_ptr<Criterion>> criteria;
    for (int k = input.upTo(5); k > 0; --k) {
        Point3D_d const centre = input.point();
        double const weight = input.number();
        criteria.push_back(std::make_unique<Criterion>(centre, weight, input.number()));
        task.AddFunctor(criteria.back().get());
    }
    task.AddFunctor(nullptr);
    Flattener const flattener;
    if (input.flag())
        task.SetProjector(&flattener);
    task.SetInitApprox(input.point());
    task.SetLimitMin(input.point());
    task.SetLimitMax(input.point());
    REmath::CMinMaxParams params;
    if (input.flag()) {
        params.SetTolerance(input.number());
        params.SetMaxIter(std::min(input.integer(), 50));
        params.SetMaxGradientMoveAttempts(std::min(input.integer(), 50));
        params.SetGradientScale(input.number());
        params.SetGradCalcRelDelta(input.number());
    }
    REmath::CMinMaxOptimizer const optimizer(task, params);
    Point3D_d best, again;
    optimizer.Run(best);
    REmath::CMinMaxOptimizer(optimizer).Run(again);
    require(Bits(best) == Bits(again), "an ascent has the same bits again");
    if (Bits(best) == Bits(task.GetInitApprox()))
        return;
    require(isFinite(best), "a step leads to a finite point");
    double before = std::numeric_limits<double>::infinity(), after = before;
    for (auto const & criterion : criteria) {
        double const start = (*criterion)(task.GetInitApprox());
        before = std::min(before, std::isnan(start) ? before : start);
        double const end = (*criterion)(best);
        require(!std::isnan(end), "no step leads to a point without values");
        after = std::min(after, end);
    }
    require(after > before || params.GetTolerance() < 0 || task.GetProjector() != nullptr,
            "an ascent ascends");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    Input input(data, size);
    int const kind = input.upTo(3);
    if (kind == 1)
        checkLeastSquares(input);
    else if (kind == 2)
        checkMinMax(input);
    else
        checkProgram(input);
    return 0;
}
