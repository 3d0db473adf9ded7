#include "report/page_style.h"

namespace cli {

const char* const kPageStyle = R"(
:root { color-scheme: light dark; --back: #ffffff; --fore: #1b1f24; --soft: #5a6470; --line: #d5dae0;
  --card: #f6f8fa; --critical: #b3261e; --warning: #8a5300; --unknown: #5b3fa0; --info: #0b5cad;
  --line-0: #0b5cad; --line-1: #b3541e; --line-2: #2e7d32; }
@media (prefers-color-scheme: dark) { :root { --back: #14171a; --fore: #e6e9ec; --soft: #9aa4ae; --line: #363c43;
  --card: #1d2125; --critical: #ff8a80; --warning: #ffc15e; --unknown: #c3aaff; --info: #7cb8ff;
  --line-0: #7cb8ff; --line-1: #ffa36b; --line-2: #81c784; } }
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 76rem; padding: 1.5rem; background: var(--back); color: var(--fore);
  font: 15px/1.5 system-ui, sans-serif; }
h1 { font-size: 1.6rem; margin: 0 0 .3rem; }
h2 { font-size: 1.25rem; margin: 2.2rem 0 .8rem; padding-top: .6rem; border-top: 1px solid var(--line); }
h3 { font-size: 1rem; margin: 1.3rem 0 .5rem; }
a { color: var(--info); }
p { margin: .4rem 0; }
.soft, .tick, .none { color: var(--soft); fill: var(--soft); }
nav a { margin-right: 1rem; }
.finding { border: 1px solid var(--line); border-left: .35rem solid var(--soft); border-radius: .3rem;
  background: var(--card); padding: .7rem 1rem; margin: .7rem 0; break-inside: avoid; }
.critical { border-left-color: var(--critical); } .warning { border-left-color: var(--warning); }
.unknown { border-left-color: var(--unknown); } .info { border-left-color: var(--info); }
.muted { opacity: .65; }
.rank { font-weight: 700; text-transform: uppercase; font-size: .8rem; letter-spacing: .04em; }
.critical .rank { color: var(--critical); } .warning .rank { color: var(--warning); }
.unknown .rank { color: var(--unknown); } .info .rank { color: var(--info); }
.good { border-left-color: var(--line-2); }
table { border-collapse: collapse; margin: .4rem 0; }
th, td { text-align: left; vertical-align: top; padding: .2rem .9rem .2rem 0; border-bottom: 1px solid var(--line);
  overflow-wrap: anywhere; }
th { font-weight: 600; color: var(--soft); }
pre, code { font: 13px/1.45 ui-monospace, monospace; }
pre { background: var(--card); border: 1px solid var(--line); border-radius: .3rem; padding: .6rem .8rem; margin: .4rem 0;
  white-space: pre-wrap; overflow-wrap: anywhere; }
.charts { display: grid; grid-template-columns: repeat(auto-fit, minmax(25rem, 1fr)); gap: 1rem; }
.columns { display: grid; grid-template-columns: repeat(auto-fit, minmax(17rem, 1fr)); gap: 0 2rem; align-items: start; }
figure { margin: 0; border: 1px solid var(--line); border-radius: .3rem; padding: .6rem; break-inside: avoid; }
figcaption { font-weight: 600; }
svg { width: 100%; height: auto; font: 12px system-ui, sans-serif; }
.grid { stroke: var(--line); }
path { fill: none; stroke-width: 2; }
path.line-0 { stroke: var(--line-0); } path.line-1 { stroke: var(--line-1); stroke-dasharray: 6 3; }
path.line-2 { stroke: var(--line-2); stroke-dasharray: 2 3; }
circle.line-0 { fill: var(--line-0); } circle.line-1 { fill: var(--line-1); } circle.line-2 { fill: var(--line-2); }
.legend { font-size: .85rem; color: var(--soft); }
.key { margin-right: 1rem; white-space: nowrap; }
.key i { display: inline-block; width: .9rem; height: .25rem; margin: 0 .35rem .2rem 0; }
i.line-0 { background: var(--line-0); } i.line-1 { background: var(--line-1); } i.line-2 { background: var(--line-2); }
@media print { :root { color-scheme: light; --back: #fff; --fore: #000; --soft: #444; --line: #bbb; --card: #fff;
  --critical: #b3261e; --warning: #8a5300; --unknown: #5b3fa0; --info: #0b5cad;
  --line-0: #0b5cad; --line-1: #b3541e; --line-2: #2e7d32; }
  body { max-width: none; padding: 0; font-size: 10pt; } nav { display: none; }
  section.cache { break-before: page; } .key i { print-color-adjust: exact; } }
)";

}  // namespace cli
