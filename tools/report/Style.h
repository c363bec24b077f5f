// Style sheet and script of the page.
// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// Contrast of ink, soft and accent on paper is at least 5:1 in light and dark.
constexpr const char* kPageStyle = R"(
:root{color-scheme:light dark;--ink:#1d2733;--soft:#5a6675;--line:#d9dfe6;--accent:#0a648f;--paper:#fff;--wash:#f4f6f9}
@media (prefers-color-scheme:dark){:root{--ink:#e3e8ee;--soft:#9ba7b5;--line:#333d49;--accent:#63bde8;--paper:#12161b;--wash:#1a2027}}
*{box-sizing:border-box}
html{scroll-behavior:smooth}
body{margin:0;background:var(--paper);color:var(--ink);font:15px/1.5 system-ui,-apple-system,"Segoe UI",Roboto,"Helvetica Neue",Arial,sans-serif}
main,header{max-width:1180px;margin:0 auto;padding:0 24px}
header{padding-top:34px}
h1{font-size:26px;line-height:1.2;margin:0 0 4px;font-weight:650;letter-spacing:-.01em}
h2{font-size:20px;margin:44px 0 10px;padding-top:14px;border-top:1px solid var(--line);font-weight:650}
h3{font-size:16px;margin:26px 0 8px;font-weight:650}
p{margin:6px 0 10px;max-width:76ch}
a{color:var(--accent);text-decoration:none}
a:hover,a:focus-visible{text-decoration:underline}
sub,sup{line-height:0;font-size:75%}
.soft{color:var(--soft)}
.formula{white-space:nowrap}
nav{margin:10px 0 0;display:flex;flex-wrap:wrap;gap:4px 18px}
.wide{overflow-x:auto;margin:8px 0 14px}
table{border-collapse:collapse;font-size:13.5px;font-variant-numeric:tabular-nums}
th{font-weight:600;text-align:left;color:var(--soft);white-space:nowrap;vertical-align:bottom}
th,td{padding:4px 13px 4px 0;border-bottom:1px solid var(--line)}
td{white-space:nowrap}
td.r,th.r{text-align:right}
td[data-pad="1"]::after{content:"\2007"}
td[data-pad=".1"]::after{content:"\2008\2007"}
td[data-pad="2"]::after{content:"\2007\2007"}
td[data-pad=".2"]::after{content:"\2008\2007\2007"}
td[data-pad="3"]::after{content:"\2007\2007\2007"}
td[data-pad=".3"]::after{content:"\2008\2007\2007\2007"}
td[data-pad="4"]::after{content:"\2007\2007\2007\2007"}
td[data-pad=".4"]::after{content:"\2008\2007\2007\2007\2007"}
td[data-pad="5"]::after{content:"\2007\2007\2007\2007\2007"}
td[data-pad=".5"]::after{content:"\2008\2007\2007\2007\2007\2007"}
td[data-pad="6"]::after{content:"\2007\2007\2007\2007\2007\2007"}
td[data-pad=".6"]::after{content:"\2008\2007\2007\2007\2007\2007\2007"}
td.text{white-space:normal;min-width:34ch}
tbody tr:hover{background:var(--wash)}
th button{all:unset;position:relative;cursor:pointer;color:inherit;font-weight:600}
th button:hover,th button:focus-visible{color:var(--accent)}
th button:focus-visible{outline:2px solid var(--accent);outline-offset:2px}
th button::after{position:absolute;left:calc(100% + 1px)}
th[aria-sort=ascending] button::after{content:"\2191"}
th[aria-sort=descending] button::after{content:"\2193"}
.unit{font-weight:400}
.best{font-weight:650;color:var(--accent)}
.flag{color:var(--accent);font-weight:650}
.remarks{padding:0;margin:8px 0;list-style:none}
.remarks li{border-left:3px solid var(--accent);padding:1px 0 1px 12px;margin:8px 0;max-width:92ch}
.facts{display:grid;grid-template-columns:max-content 1fr;gap:2px 18px;margin:10px 0}
.facts dt{color:var(--soft)}
.facts dd{margin:0}
.fig{display:block;width:100%;height:auto}
.along{display:grid;grid-template-columns:repeat(auto-fill,minmax(500px,1fr));gap:8px 28px}
.small{display:grid;grid-template-columns:repeat(auto-fill,minmax(170px,1fr));gap:12px 16px;margin:10px 0}
.small a{display:block;color:inherit;border-radius:4px;content-visibility:auto;contain-intrinsic-size:auto 140px}
.small a:hover{background:var(--wash);text-decoration:none}
.small b{font-weight:600;color:var(--accent)}
.small span{font-size:12.5px;display:flex;justify-content:space-between;padding:0 6px}
.set{content-visibility:auto;contain-intrinsic-size:auto 480px;border-top:1px solid var(--line);padding:6px 0 14px;scroll-margin-top:8px}
.set .cols{display:grid;grid-template-columns:minmax(0,11fr) minmax(0,10fr);gap:6px 30px;align-items:start}
.set table{font-size:13.5px}
.set th,.set td{padding-right:11px}
footer{max-width:1180px;margin:40px auto;padding:12px 24px;color:var(--soft);font-size:13px}
@media (max-width:960px){.set .cols{grid-template-columns:minmax(0,1fr)}.along{grid-template-columns:minmax(0,1fr)}}
@media print{
:root{color-scheme:light;--ink:#000;--soft:#444;--line:#ccc;--accent:#0a5276;--paper:#fff;--wash:#fff}
@page{margin:14mm}
body{font-size:9.5pt}
main,header,footer{max-width:none;padding-left:0;padding-right:0}
nav{display:none}
h2,h3{break-after:avoid}
.set,.small a,.along svg,.remarks li,tr{break-inside:avoid}
.set,.small a{content-visibility:visible}
.wide{overflow:visible}
table,.set table{font-size:7.8pt}
th,td,.set th,.set td{padding:2px 6px 2px 0}
th{white-space:normal}
td:first-child{white-space:normal;overflow-wrap:anywhere}
thead{display:table-header-group}
th button::after{display:none}
.along{grid-template-columns:minmax(0,1fr)}
.small{grid-template-columns:repeat(4,1fr)}
.set .cols{display:flex;flex-wrap:wrap;gap:6px 14px}
.set .cols>div{flex:0 0 54%}
.set .cols>div+div{flex:1 1 34%;min-width:min-content}
.set .fig .num,.set .fig .leg{font-size:13px}
.set .fig .lab{font-size:14px}
.set{padding:2px 0 4px}
.set h3{margin:10px 0 4px}
h3+p{break-after:avoid}
a{color:inherit}
}
)";

// Sorting: by the number in data-v where a cell has one, cells without any last, else by text.
constexpr const char* kPageScript = R"(
"use strict";
for (const table of document.querySelectorAll("table.sortable")) {
  const heads = table.tHead.rows[table.tHead.rows.length - 1].cells;
  [...heads].forEach((head, column) => {
    const button = head.querySelector("button");
    if (!button) return;
    button.addEventListener("click", () => {
      const down = head.getAttribute("aria-sort") === "ascending";
      for (const other of heads) other.removeAttribute("aria-sort");
      head.setAttribute("aria-sort", down ? "descending" : "ascending");
      const key = row => row.cells[column].dataset.v ?? row.cells[column].textContent.trim();
      const rows = [...table.tBodies[0].rows];
      const numeric = rows.every(row => key(row) === "" || !isNaN(key(row)));
      rows.sort((a, b) => {
        const p = key(a), q = key(b);
        if (p === "" || q === "") return (p === "") - (q === "");
        const order = numeric ? p - q : p.localeCompare(q, undefined, {numeric: true});
        return down ? -order : order;
      });
      table.tBodies[0].append(...rows);
    });
  });
}
)";
