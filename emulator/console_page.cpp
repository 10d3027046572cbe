// The console page, whole: markup, style and the script that polls state.json and draws it. Every text
// from the cloud goes in through textContent, so a key with markup in it shows as text.
#include "emulator/console.h"

namespace quorvane::emulator {

const char* const kConsolePage = R"PAGE(<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<title>quorvane-cloud console</title>
<link rel="icon" href="data:,">
<style>
body { font: 14px/1.4 system-ui, sans-serif; margin: 0; color: #1d2330; background: #f5f6f8; }
header { background: #1d2330; color: #fff; padding: 10px 20px; display: flex; gap: 24px; align-items: baseline; }
header h1 { font-size: 17px; margin: 0; }
header span { color: #aab3c5; font-size: 13px; }
main { padding: 8px 20px 24px; display: grid; grid-template-columns: 1fr 1fr; gap: 16px; }
section { background: #fff; border: 1px solid #dde1e8; border-radius: 6px; padding: 10px 14px; overflow: auto; min-width: 0; }
section.wide { grid-column: 1 / 3; }
h2 { font-size: 14px; margin: 2px 0 8px; }
h3 { font-size: 13px; margin: 10px 0 4px; color: #44506a; }
table { border-collapse: collapse; width: 100%; font-size: 12.5px; }
th { text-align: left; color: #66708a; font-weight: 600; border-bottom: 1px solid #dde1e8; padding: 3px 8px 3px 0; }
td { padding: 3px 8px 3px 0; border-bottom: 1px solid #f0f1f4; font-family: ui-monospace, monospace; white-space: nowrap;
     max-width: 22em; overflow: hidden; text-overflow: ellipsis; }
section:not(.wide) td { max-width: 15em; }
td.long { max-width: 60em; }
td.num { text-align: right; }
.empty { color: #8a93a6; font-style: italic; }
.s2 { color: #217a3c; } .s4 { color: #b06000; } .s5, .s0 { color: #c0262d; font-weight: 600; }
</style>
</head>
<body>
<header><h1>quorvane-cloud</h1><span id="endpoint"></span><span id="updated">loading&hellip;</span></header>
<main>
<section><h2>Buckets and objects</h2><div id="buckets"></div></section>
<section><h2>Open multipart uploads</h2><div id="uploads"></div>
<h2 style="margin-top:14px">Videos</h2><div id="videos"></div>
<h2 style="margin-top:14px">Images</h2><div id="images"></div></section>
<section class="wide"><h2>Recent requests</h2><div id="requests"></div></section>
</main>
<script>
"use strict";
function size(n) {
  const units = ["B", "KiB", "MiB", "GiB"];
  let i = 0;
  while (n >= 1024 && i < units.length - 1) { n /= 1024; i++; }
  return (i ? n.toFixed(1) : String(n)) + " " + units[i];
}
function table(rows, columns, empty) {
  if (!rows.length) {
    const p = document.createElement("p");
    p.className = "empty";
    p.textContent = empty;
    return p;
  }
  const t = document.createElement("table");
  const head = t.insertRow();
  for (const c of columns) {
    const th = document.createElement("th");
    th.textContent = c.title;
    head.appendChild(th);
  }
  for (const r of rows) {
    const tr = t.insertRow();
    for (const c of columns) {
      const td = tr.insertCell();
      td.textContent = td.title = c.value(r);
      td.className = c.cls ? c.cls(r) : c.num ? "num" : c.long ? "long" : "";
    }
  }
  return t;
}
function fill(id, ...nodes) { document.getElementById(id).replaceChildren(...nodes); }
function draw(s) {
  document.getElementById("endpoint").textContent = s.endpoint;
  document.getElementById("updated").textContent = "updated " + new Date().toLocaleTimeString();
  const buckets = [];
  for (const b of s.buckets) {
    const h = document.createElement("h3");
    h.textContent = b.name + " (" + b.objects.length + ")";
    buckets.push(h, table(b.objects, [
      {title: "key", value: o => o.key},
      {title: "size", value: o => size(o.size), num: true},
      {title: "modified", value: o => o.lastModified.replace("T", " ").replace(/\.\d+Z$/, "")},
      {title: "CRC-64", value: o => o.crc64}], "no objects"));
  }
  fill("buckets", ...buckets);
  fill("uploads", table(s.uploads, [
    {title: "bucket/key", value: u => u.bucket + "/" + u.key},
    {title: "parts", value: u => u.parts, num: true},
    {title: "bytes", value: u => size(u.bytes), num: true},
    {title: "upload id", value: u => u.uploadId}], "none open"));
  fill("videos", table(s.videos, [
    {title: "video id", value: v => v.videoId},
    {title: "title", value: v => v.title},
    {title: "file", value: v => v.fileName.split("/").pop()},
    {title: "object", value: v => v.objectKey}], "none"));
  fill("images", table(s.images, [
    {title: "image id", value: i => i.imageId},
    {title: "type", value: i => i.imageType},
    {title: "object", value: i => i.objectKey}], "none"));
  fill("requests", table(s.requests.slice().reverse(), [
    {title: "time", value: r => r.time.slice(11, 23)},
    {title: "method", value: r => r.method},
    {title: "status", value: r => r.status || "reset", cls: r => "s" + String(r.status)[0]},
    {title: "operation", value: r => r.operation || "-"},
    {title: "in", value: r => size(r.in), num: true},
    {title: "out", value: r => size(r.out), num: true},
    {title: "ms", value: r => r.ms, num: true},
    {title: "target", value: r => r.target, long: true}], "no requests yet"));
}
async function refresh() {
  try {
    const answer = await fetch("state.json", {cache: "no-store"});
    if (answer.ok) draw(await answer.json());
    else document.getElementById("updated").textContent = "the cloud answered " + answer.status;
  } catch (e) {
    document.getElementById("updated").textContent = "the cloud does not answer";
  }
  setTimeout(refresh, 1000);
}
refresh();
</script>
</body>
</html>
)PAGE";

}  // namespace quorvane::emulator
