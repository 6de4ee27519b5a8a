// The figures of a benchmark run, kept for the report: each figure's rounds (its median, minimum
// and maximum), the floor it is measured against in the same rounds (the same work without the
// component), and the ratio of the two per round. Written as JSON (--json FILE); the report
// (scripts/benchreport.py) is rendered from that file alone.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

struct BenchSpread
{
    double median = 0;
    double min = 0;
    double max = 0;
};
BenchSpread BenchSpreadOf(std::vector<double> samples);
inline double BenchMedian(const std::vector<double>& samples)
{
    return BenchSpreadOf(samples).median;
}

// A figure and its floor over the same rounds.
struct BenchPair
{
    std::vector<double> component;
    std::vector<double> floor;
    double Component() const { return BenchSpreadOf(component).median; }
    double Floor() const { return BenchSpreadOf(floor).median; }
};

// component() and floor() one right after the other in each round, after a warm-up round (not
// kept), so that drift of the shared machine hits both alike; each returns its round's figure.
template <class Component, class Floor>
BenchPair BenchAlternate(int rounds, Component component, Floor floor)
{
    BenchPair pair;
    for (int round = -1; round < rounds; ++round)
    {
        const double c = component();
        const double f = floor();
        if (round < 0)
            continue;
        pair.component.push_back(c);
        pair.floor.push_back(f);
    }
    return pair;
}

class BenchResults
{
public:
    static BenchResults& Instance();

    // Quick mode: a few rounds and the small sizes only, so that every benchmark runs in CI.
    void SetQuick(bool quick) { m_quick = quick; }
    bool Quick() const { return m_quick; }
    // The rounds to measure: full in a full run, at most 3 in quick mode.
    int Rounds(int full) const { return m_quick && full > 3 ? 3 : full; }

    // A figure against its floor, both measured in the same rounds (same length).
    void AddRatio(const std::string& group, const std::string& id, const std::string& title, const std::string& unit,
                  const std::vector<double>& component, const std::string& floorName, const std::vector<double>& floor,
                  nlohmann::json params = nlohmann::json::object(), double targetMax = 0);
    void AddRatio(const std::string& group, const std::string& id, const std::string& title, const std::string& unit,
                  const BenchPair& pair, const std::string& floorName, nlohmann::json params = nlohmann::json::object(),
                  double targetMax = 0)
    {
        AddRatio(group, id, title, unit, pair.component, floorName, pair.floor, std::move(params), targetMax);
    }
    // A figure on its own (a rate, a count).
    void AddValue(const std::string& group, const std::string& id, const std::string& title, const std::string& unit,
                  const std::vector<double>& samples, nlohmann::json params = nlohmann::json::object());

    // Writes every figure so far; false when the file cannot be written.
    bool Write(const std::string& path) const;

private:
    nlohmann::json m_figures = nlohmann::json::array();
    bool m_quick = false;
};
