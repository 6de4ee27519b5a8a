#include "benchresults.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>

namespace
{
nlohmann::json SpreadJson(const BenchSpread& spread)
{
    return {{"median", spread.median}, {"min", spread.min}, {"max", spread.max}};
}
} // namespace

BenchSpread BenchSpreadOf(std::vector<double> samples)
{
    BenchSpread spread;
    if (samples.empty())
        return spread;
    std::sort(samples.begin(), samples.end());
    const size_t n = samples.size();
    spread.median = n % 2 ? samples[n / 2] : (samples[n / 2 - 1] + samples[n / 2]) / 2;
    spread.min = samples.front();
    spread.max = samples.back();
    return spread;
}

BenchResults& BenchResults::Instance()
{
    static BenchResults results;
    return results;
}

void BenchResults::AddRatio(const std::string& group, const std::string& id, const std::string& title,
                            const std::string& unit, const std::vector<double>& component, const std::string& floorName,
                            const std::vector<double>& floor, nlohmann::json params, double targetMax)
{
    std::vector<double> ratios;
    for (size_t i = 0; i < component.size() && i < floor.size(); ++i)
        if (floor[i] > 0)
            ratios.push_back(component[i] / floor[i]);
    nlohmann::json figure = {{"group", group},
                             {"id", id},
                             {"title", title},
                             {"unit", unit},
                             {"rounds", component.size()},
                             {"component", SpreadJson(BenchSpreadOf(component))},
                             {"floor", SpreadJson(BenchSpreadOf(floor))},
                             {"floor_name", floorName},
                             {"ratio", SpreadJson(BenchSpreadOf(ratios))},
                             {"params", std::move(params)}};
    if (targetMax > 0)
        figure["target_max"] = targetMax;
    m_figures.push_back(std::move(figure));
}

void BenchResults::AddValue(const std::string& group, const std::string& id, const std::string& title,
                            const std::string& unit, const std::vector<double>& samples, nlohmann::json params)
{
    m_figures.push_back({{"group", group},
                         {"id", id},
                         {"title", title},
                         {"unit", unit},
                         {"rounds", samples.size()},
                         {"component", SpreadJson(BenchSpreadOf(samples))},
                         {"params", std::move(params)}});
}

bool BenchResults::Write(const std::string& path) const
{
    SYSTEM_INFO system = {};
    ::GetNativeSystemInfo(&system);
    char when[32] = {};
    const std::time_t now = std::time(nullptr);
    std::strftime(when, sizeof when, "%Y-%m-%d %H:%M UTC", std::gmtime(&now));
    const nlohmann::json document = {
        {"run", {{"date", when}, {"quick", m_quick}, {"processors", system.dwNumberOfProcessors}}},
        {"figures", m_figures}};
    std::ofstream file(path, std::ios::binary);
    if (!file)
        return false;
    file << document.dump(2) << "\n";
    return static_cast<bool>(file);
}
