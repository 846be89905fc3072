#include "fwmtools/timing/report.hpp"

#include <fmt/format.h>
#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

namespace fwmtools::timing {
namespace {

std::string escapeHtml(std::string_view s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

// Pairs of (time s, TE ns), thinned to min and max per bucket.
nlohmann::json thinned(const TeSeries &s, double fromS) {
  const size_t n = s.teNs.size();
  const auto start = static_cast<size_t>(std::max(0.0, std::ceil((fromS - s.t0S) / s.dtS - 1e-9)));
  const size_t bucket = std::max<size_t>(1, (2 * (n - std::min(start, n)) + kReportMaxPoints - 1) / kReportMaxPoints);
  nlohmann::json points = nlohmann::json::array();
  auto at = [&](size_t i) { return nlohmann::json::array({s.t0S + static_cast<double>(i) * s.dtS, s.teNs[i]}); };
  for (size_t b = std::min(start, n); b < n; b += bucket) {
    const auto first = s.teNs.begin() + static_cast<std::ptrdiff_t>(b);
    const auto last = s.teNs.begin() + static_cast<std::ptrdiff_t>(std::min(n, b + bucket));
    const auto [lo, hi] = std::minmax_element(first, last);
    const auto i = static_cast<size_t>(lo - s.teNs.begin()), j = static_cast<size_t>(hi - s.teNs.begin());
    points.push_back(at(std::min(i, j)));
    if (i != j) points.push_back(at(std::max(i, j)));
  }
  return points;
}

nlohmann::json curve(const std::vector<CurvePoint> &points) {
  nlohmann::json out = nlohmann::json::array();
  for (const CurvePoint &p : points) out.push_back({p.tauS, p.ns});
  return out;
}

void writeSummary(std::ostream &out, std::span<const EngineTe> engines) {
  out << "<table id=summary><tr><th>engine<th>window (s)<th>lock (s)<th>max|TE| (ns)<th>cTE (ns)"
         "<th>dTE<sub>L</sub> MTIE max (ns)<th>dTE<sub>L</sub> TDEV max (ns)";
  for (const TeClass &c : kTeClasses) out << "<th>class " << c.name;
  out << "<th>meets</tr>\n";
  for (const EngineTe &e : engines) {
    const TeResult &r = e.result;
    auto peak = [](const std::vector<CurvePoint> &v) {
      double m = 0;
      for (const CurvePoint &p : v) m = std::max(m, p.ns);
      return v.empty() ? std::string("-") : fmt::format("{:.2f}", m);
    };
    out << fmt::format("<tr><td>{}<td>{:.1f} – {:.1f}<td>{}<td>{:.2f}<td>{:.2f}<td>{}<td>{}", escapeHtml(e.name),
                       r.windowStartS, r.windowEndS, r.lockTimeS ? fmt::format("{:.3f}", *r.lockTimeS) : "never",
                       r.maxAbsTeNs, r.cteNs, peak(r.mtie), peak(r.tdev));
    for (const TeVerdict &v : r.verdicts) {
      out << (v.met() ? "<td class=ok>" : "<td class=bad>") << (v.maxTe ? "" : "max|TE| ") << (v.cte ? "" : "cTE ")
          << (v.mtie ? "" : "MTIE ") << (v.tdev ? "" : "TDEV ") << (v.met() ? "met" : "missed") << "</td>";
    }
    out << "<td class=verdict>" << r.bestClass << "</tr>\n";
  }
  out << "</table>\n";
}

// Draws the three plots from the page's data and then writes what it drew
// into #check, for a person and for the headless browser check alike.
constexpr std::string_view kScript = R"JS(
const D = JSON.parse(document.getElementById('te-data').textContent);
const NS = 'http://www.w3.org/2000/svg', W = 760, H = 300, M = {l: 70, r: 40, t: 20, b: 40};
const COLORS = ['#1f77b4', '#d62728', '#2ca02c', '#9467bd', '#ff7f0e', '#8c564b'];
function el(tag, attrs, parent) {
  const e = document.createElementNS(NS, tag);
  for (const k in attrs) e.setAttribute(k, attrs[k]);
  if (parent) parent.appendChild(e);
  return e;
}
function plot(id, series, logScale, xLabel, yLabel) {
  const pts = series.flatMap(s => s.points).filter(p => !logScale || (p[0] > 0 && p[1] > 0));
  const f = logScale ? Math.log10 : (v => v);
  let [x0, x1, y0, y1] = [Infinity, -Infinity, Infinity, -Infinity];
  for (const [x, y] of pts) { x0 = Math.min(x0, f(x)); x1 = Math.max(x1, f(x)); y0 = Math.min(y0, f(y)); y1 = Math.max(y1, f(y)); }
  if (!(x1 > x0)) { x0 -= 1; x1 += 1; }
  if (!(y1 > y0)) { y0 -= 1; y1 += 1; }
  const pad = (y1 - y0) * 0.05; y0 -= pad; y1 += pad;
  const sx = x => M.l + (f(x) - x0) / (x1 - x0) * (W - M.l - M.r);
  const sy = y => H - M.b - (f(y) - y0) / (y1 - y0) * (H - M.t - M.b);
  const svg = el('svg', {width: W, height: H, viewBox: `0 0 ${W} ${H}`}, document.getElementById(id));
  el('rect', {x: M.l, y: M.t, width: W - M.l - M.r, height: H - M.t - M.b, class: 'frame'}, svg);
  for (let i = 0; i <= 4; ++i) {
    const xv = x0 + (x1 - x0) * i / 4, yv = y0 + (y1 - y0) * i / 4;
    const fmt = v => (logScale ? Math.pow(10, v) : v).toPrecision(3);
    el('text', {x: M.l + (W - M.l - M.r) * i / 4, y: H - M.b + 16, class: 'tick'}, svg).textContent = fmt(xv);
    el('text', {x: M.l - 6, y: H - M.b - (H - M.t - M.b) * i / 4 + 4, class: 'tick y'}, svg).textContent = fmt(yv);
  }
  el('text', {x: W / 2, y: H - 6, class: 'label'}, svg).textContent = xLabel;
  el('text', {x: 14, y: H / 2, class: 'label', transform: `rotate(-90 14 ${H / 2})`}, svg).textContent = yLabel;
  series.forEach((s, i) => {
    const p = s.points.filter(q => !logScale || (q[0] > 0 && q[1] > 0));
    if (!p.length) return;
    const d = p.map((q, k) => (k ? 'L' : 'M') + sx(q[0]).toFixed(1) + ' ' + sy(q[1]).toFixed(1)).join('');
    el('path', {d, class: s.mask ? 'mask' : 'curve', stroke: s.mask ? '#888' : COLORS[i % COLORS.length],
                'data-name': s.name}, svg);
    el('text', {x: W - M.r - 4, y: M.t + 14 + 14 * i, class: 'legend', fill: s.mask ? '#888' : COLORS[i % COLORS.length]},
       svg).textContent = s.name;
  });
  return svg;
}
const masks = key => D.classes.filter((c, i, all) => all.findIndex(o => o[key] === c[key]) === i).map(c => ({
  name: 'mask ' + D.classes.filter(o => o[key] === c[key]).map(o => o.name).join('/') + ' ' + c[key] + ' ns',
  mask: true, points: [[D.maskTau[0], c[key]], [D.maskTau[1], c[key]]]}));
plot('te-plot', D.engines.map(e => ({name: e.name, points: e.te})), false, 'true time (s)', 'TE (ns)');
plot('mtie-plot', D.engines.map(e => ({name: e.name, points: e.mtie})).concat(masks('mtie')), true,
     'observation interval (s)', 'dTE_L MTIE (ns)');
plot('tdev-plot', D.engines.map(e => ({name: e.name, points: e.tdev})).concat(masks('tdev')), true,
     'observation interval (s)', 'dTE_L TDEV (ns)');
const count = sel => document.querySelectorAll(sel).length;
const verdicts = [...document.querySelectorAll('#summary td.verdict')].map((td, i) => D.engines[i].name + ':' + td.textContent);
document.getElementById('check').textContent =
  `engines=${D.engines.length} te=${count('#te-plot path.curve')} mtie=${count('#mtie-plot path.curve')}` +
  ` tdev=${count('#tdev-plot path.curve')} masks=${count('path.mask')} verdicts=${verdicts.join(',')}`;
)JS";

constexpr std::string_view kStyle = R"CSS(
body { font-family: sans-serif; margin: 2em; color: #222; }
table { border-collapse: collapse; margin: 1em 0; }
td, th { border: 1px solid #ccc; padding: 4px 8px; text-align: right; }
td.ok { background: #e6f4e6; } td.bad { background: #fbe3e3; }
svg { display: block; margin: 0.5em 0 1.5em; }
.frame { fill: #fcfcfc; stroke: #999; } .curve { fill: none; stroke-width: 1.5; }
.mask { fill: none; stroke-width: 1.5; stroke-dasharray: 6 4; }
.tick { font-size: 11px; text-anchor: middle; } .tick.y { text-anchor: end; }
.label { font-size: 12px; text-anchor: middle; } .legend { font-size: 12px; text-anchor: end; }
#check { color: #666; font-size: 12px; }
)CSS";

}  // namespace

void writeHtmlReport(std::ostream &out, std::string_view title, std::span<const EngineTe> engines) {
  nlohmann::json data;
  data["maskTau"] = {kMaskTauMinS, kMaskTauMaxS};
  for (const TeClass &c : kTeClasses) {
    data["classes"].push_back({{"name", std::string(1, c.name)}, {"mtie", c.mtieNs}, {"tdev", c.tdevNs}});
  }
  data["engines"] = nlohmann::json::array();
  for (const EngineTe &e : engines) {
    data["engines"].push_back({{"name", e.name},
                               {"te", thinned(e.series, e.result.windowStartS)},
                               {"mtie", curve(e.result.mtie)},
                               {"tdev", curve(e.result.tdev)}});
  }
  // "</" inside the data would end its script element early.
  const std::string dumped = data.dump();
  std::string json;
  json.reserve(dumped.size());
  for (size_t i = 0; i < dumped.size(); ++i) {
    json += dumped[i];
    if (dumped[i] == '<' && i + 1 < dumped.size() && dumped[i + 1] == '/') json += '\\';
  }

  const std::string t = escapeHtml(title);
  out << "<!DOCTYPE html>\n<html lang=en><head><meta charset=utf-8><title>" << t << "</title><style>" << kStyle
      << "</style></head>\n<body><h1>" << t << "</h1>\n";
  writeSummary(out, engines);
  out << "<p>max|TE| and cTE (the mean TE) over the window; dTE<sub>L</sub> is the TE through a first-order "
         "0.1 Hz low-pass. A class is met when every figure is within its limits; masks apply from 1 s to "
         "1000 s.</p>\n<h2>Time error over the window</h2><div id=te-plot></div>\n<h2>dTE<sub>L</sub> MTIE</h2><div "
         "id=mtie-plot></div>\n<h2>dTE<sub>L</sub> TDEV</h2><div id=tdev-plot></div>\n<p id=check>the plots "
         "need JavaScript</p>\n<script type=\"application/json\" id=te-data>"
      << json << "</script>\n<script>" << kScript << "</script>\n</body></html>\n";
}

}  // namespace fwmtools::timing
