// The look of the page: one sheet for light and dark, for wide screens and telephones.
#pragma once

namespace ctl {

// Text has at least 4.5 times the contrast of its ground, in both schemes. Only trouble has a
// colour of its own; everything else is ink, and one blue for what was measured.
inline constexpr char kStyle[] = R"css(
:root {
  color-scheme: light dark;
  --ground: #f4f6f8; --card: #ffffff; --ink: #17202b; --soft: #55616f; --rule: #dfe4ea;
  --data: #2a6a9e; --area: #2a6a9e26; --trouble: #b3261e; --trouble-ground: #fcedeb;
}
@media (prefers-color-scheme: dark) {
  :root {
    --ground: #0f141a; --card: #171e26; --ink: #e4e9ef; --soft: #9caab9; --rule: #2a343f;
    --data: #72b3e2; --area: #72b3e22e; --trouble: #ff9385; --trouble-ground: #351c1b;
  }
}
* { box-sizing: border-box; }
body {
  margin: 0 auto; padding: 1.5rem 1.25rem 2.5rem; max-width: 74rem;
  background: var(--ground); color: var(--ink);
  font: 0.9375rem/1.45 system-ui, -apple-system, "Segoe UI", Roboto, Inter, sans-serif;
  font-variant-numeric: tabular-nums; overflow-wrap: anywhere;
}
h1, h2, h3, p, ul, dl, dd, figure { margin: 0; padding: 0; }
h1 { font-size: 1.75rem; line-height: 1.2; font-weight: 650; letter-spacing: -0.015em; }
h2 { font-size: 1.0625rem; font-weight: 650; margin: 2rem 0 0.6rem; }
h3, figcaption { font-size: 0.875rem; font-weight: 600; }
a { color: inherit; }
code { font: 0.8125rem/1.45 ui-monospace, "Cascadia Mono", Menlo, "DejaVu Sans Mono", monospace; }
.soft { color: var(--soft); }
.bad { color: var(--trouble); font-weight: 600; }
.brand {
  display: flex; flex-wrap: wrap; gap: 0.15rem 1rem; justify-content: space-between;
  margin-bottom: 1.1rem; font-size: 0.8125rem; color: var(--soft);
}
.brand strong { color: var(--ink); font-size: 0.9375rem; }
.verdict { border-left: 4px solid var(--data); padding: 0.1rem 0 0.15rem 0.9rem; }
.verdict.trouble { border-color: var(--trouble); }
.verdict.trouble h1 { color: var(--trouble); }
.verdict ul { list-style: none; margin-top: 0.4rem; }
.verdict li + li { margin-top: 0.1rem; }
.verdict p { margin-top: 0.25rem; color: var(--soft); }
.tiles, .charts, .totals { display: grid; gap: 0.75rem; }
.tiles { grid-template-columns: repeat(auto-fit, minmax(10.5rem, 1fr)); margin-top: 1.4rem; }
.charts { grid-template-columns: repeat(auto-fit, minmax(min(100%, 24rem), 1fr));
  margin-top: 0.75rem; }
.totals { grid-template-columns: repeat(auto-fit, minmax(min(100%, 20rem), 1fr)); }
.tiles > div, figure, .card {
  background: var(--card); border: 1px solid var(--rule); border-radius: 0.6rem;
  padding: 0.8rem 0.95rem;
}
.tiles dt { font-size: 0.8125rem; color: var(--soft); }
.tiles dd b {
  display: block; color: var(--ink); font-size: 1.5rem; line-height: 1.3; font-weight: 650;
}
.tiles dd { font-size: 0.8125rem; color: var(--soft); }
.tiles .trouble { border-color: var(--trouble); background: var(--trouble-ground); }
.tiles .trouble b { color: var(--trouble); }
figcaption { display: flex; flex-wrap: wrap; justify-content: space-between; gap: 0 0.75rem; }
figcaption span { font-weight: 400; color: var(--soft); }
.plot { position: relative; margin-top: 0.6rem; border-top: 1px solid var(--rule);
  border-bottom: 1px solid var(--rule); }
.plot .top { position: absolute; left: 0; top: 0.1rem; font-size: 0.75rem; color: var(--soft);
  background: var(--card); padding-right: 0.3rem; pointer-events: none; }
.axis { display: flex; justify-content: space-between; font-size: 0.75rem; color: var(--soft);
  margin-top: 0.2rem; }
svg { display: block; width: 100%; height: 7.5rem; overflow: visible; }
.totals svg { height: 4.5rem; }
.area { fill: var(--area); }
.line { fill: none; stroke: var(--data); stroke-width: 1.5px; vector-effect: non-scaling-stroke; }
.bar { fill: var(--data); }
.bar.today { opacity: 0.5; }
.hint { fill: transparent; }
.hint:hover { fill: var(--area); }
.card { padding: 0.2rem 0.95rem 0.4rem; }
.card + .card { margin-top: 0.75rem; }
table { width: 100%; border-collapse: collapse; }
caption { text-align: left; padding: 0.5rem 0 0.25rem; font-size: 0.8125rem;
  color: var(--soft); }
th { text-align: left; font-size: 0.8125rem; font-weight: 500; color: var(--soft);
  white-space: nowrap; }
th, td { padding: 0.45rem 0.9rem 0.45rem 0; vertical-align: top;
  border-bottom: 1px solid var(--rule); }
tr:last-child > td, tr:last-child > th { border-bottom: 0; }
td:last-child, th:last-child { padding-right: 0; }
.n { text-align: right; white-space: nowrap; }
th.brief { min-width: 6rem; }
.devices td, .devices th { vertical-align: middle; }
.devices tbody th { color: var(--ink); font-weight: 600; font-size: 0.9375rem; }
.devices .curve { width: 11rem; }
.devices svg { height: 1.75rem; }
.devices small { display: block; font-size: 0.8125rem; font-weight: 400; white-space: normal; }
td small { display: block; font-size: 0.8125rem; color: var(--soft); margin-top: 0.1rem; }
.aside { margin-top: 0.6rem; }
footer { margin-top: 2.2rem; padding-top: 0.8rem; border-top: 1px solid var(--rule);
  font-size: 0.8125rem; color: var(--soft); }
@media (max-width: 46rem) {
  body { padding: 1rem 0.8rem 2rem; }
  h1 { font-size: 1.45rem; }
  .tiles { grid-template-columns: repeat(2, minmax(0, 1fr)); }
  .tiles dd b { font-size: 1.25rem; }
  table, tbody, caption { display: block; }
  thead { position: absolute; width: 1px; height: 1px; overflow: hidden; clip-path: inset(50%); }
  tr { display: grid; grid-template-columns: repeat(2, minmax(0, 1fr)); gap: 0.3rem 0.9rem;
    padding: 0.65rem 0; border-bottom: 1px solid var(--rule); }
  tr:last-child { border-bottom: 0; }
  th, td { padding: 0; border: 0; text-align: left; }
  td[data-label]::before { content: attr(data-label); display: block; font-size: 0.75rem;
    color: var(--soft); }
  .n { text-align: left; white-space: normal; }
  .wide, .devices tbody th, .devices .curve { grid-column: 1 / -1; width: auto; }
  .devices tr { grid-template-columns: repeat(3, minmax(0, 1fr)); }
  .devices svg { height: 2.25rem; }
}
)css";

}  // namespace ctl
