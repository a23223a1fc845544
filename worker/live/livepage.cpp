// The live server's page. It reads the stream itself instead of leaving it to a picture element, because only so it
// knows how many pictures arrive, and because a browser that falls behind then makes the server leave pictures out.
#include "worker/live/livepage.h"

namespace kxvcr {

const char kLivePageHtml[] = R"page(<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Live screen</title>
<link rel="icon" href="/icon.svg">
<link rel="stylesheet" href="/live.css">
<script src="/live.js" defer></script>
</head>
<body data-state="connecting">
<header>
<h1>Live screen</h1>
<p id="state" role="status">Connecting</p>
<dl>
<div><dt>Rate</dt><dd><output id="rate">0</output> fps</dd></div>
<div><dt>Size</dt><dd id="size">&ndash;</dd></div>
<div><dt>Frames</dt><dd id="frames">0</dd></div>
</dl>
<button id="full" type="button" title="Full screen (F)">Full screen</button>
</header>
<main id="stage">
<canvas id="picture" width="0" height="0" role="img" aria-label="Live picture of the screen"></canvas>
<noscript><img src="/stream" alt="Live picture of the screen"></noscript>
</main>
</body>
</html>
)page";

const char kLivePageScript[] = R"page("use strict";

const RETRY_MS = 1000;
const RATE_SPAN_MS = 2000;
const RATE_REFRESH_MS = 500;
const TITLE = document.title;

const byId = (id) => document.getElementById(id);
const canvas = byId("picture");
const context = canvas.getContext("2d", { alpha: false });

let frames = 0;
let arrivals = []; // times of the pictures within the last RATE_SPAN_MS

function showState(state, text) {
  document.body.dataset.state = state;
  byId("state").textContent = text;
}

// Lines and blocks of bytes out of a stream that comes in chunks.
class ByteReader {
  constructor(stream) {
    this.reader = stream.getReader();
    this.chunk = new Uint8Array(0);
  }

  async fill() {
    while (this.chunk.length === 0) {
      const { done, value } = await this.reader.read();
      if (done) throw new Error("the stream has ended");
      this.chunk = value;
    }
  }

  async line() {
    let text = "";
    for (;;) {
      await this.fill();
      const end = this.chunk.indexOf(10);
      const taken = this.chunk.subarray(0, end < 0 ? this.chunk.length : end + 1);
      text += String.fromCharCode(...taken.subarray(0, 1024));
      this.chunk = this.chunk.subarray(taken.length);
      if (end >= 0) return text.trim();
    }
  }

  async block(size) {
    const bytes = new Uint8Array(size);
    for (let filled = 0; filled < size; ) {
      await this.fill();
      const taken = this.chunk.subarray(0, size - filled);
      bytes.set(taken, filled);
      filled += taken.length;
      this.chunk = this.chunk.subarray(taken.length);
    }
    return bytes;
  }
}

async function nextPicture(reader) {
  let size = 0;
  for (;;) {
    const line = await reader.line();
    const length = /^content-length:\s*(\d+)$/i.exec(line);
    if (length) size = Number(length[1]);
    if (line === "" && size > 0) return new Blob([await reader.block(size)], { type: "image/jpeg" });
  }
}

async function draw(picture) {
  const bitmap = await createImageBitmap(picture);
  if (canvas.width !== bitmap.width || canvas.height !== bitmap.height) {
    canvas.width = bitmap.width;
    canvas.height = bitmap.height;
    byId("size").textContent = `${bitmap.width} × ${bitmap.height}`;
  }
  context.drawImage(bitmap, 0, 0);
  bitmap.close();
  frames += 1;
  arrivals.push(performance.now());
}

async function show() {
  const answer = await fetch("/stream", { cache: "no-store" });
  if (answer.status === 503) throw new Error("all viewers' places are taken");
  if (!answer.ok) throw new Error(`the server answered ${answer.status}`);
  const reader = new ByteReader(answer.body);
  try {
    for (;;) {
      await draw(await nextPicture(reader));
      showState("live", "Live");
    }
  } finally {
    reader.reader.cancel().catch(() => {});
  }
}

async function showForever() {
  for (;;) {
    try {
      await show();
    } catch (failure) {
      const reason = failure instanceof TypeError ? "no connection" : failure.message;
      showState("lost", `Trying again: ${reason}`);
    }
    await new Promise((resolve) => setTimeout(resolve, RETRY_MS));
  }
}

const started = performance.now();
setInterval(() => {
  const now = performance.now();
  arrivals = arrivals.filter((time) => time > now - RATE_SPAN_MS);
  const span = Math.max(Math.min(RATE_SPAN_MS, now - started), 1);
  const rate = ((arrivals.length * 1000) / span).toFixed(1);
  byId("rate").textContent = rate;
  byId("frames").textContent = frames.toLocaleString("en");
  document.title = document.body.dataset.state === "live" ? `${rate} fps – ${TITLE}` : TITLE;
}, RATE_REFRESH_MS);

function toggleFullScreen() {
  if (document.fullscreenElement) document.exitFullscreen();
  else byId("stage").requestFullscreen();
}
byId("full").addEventListener("click", toggleFullScreen);
byId("stage").addEventListener("dblclick", toggleFullScreen);
document.addEventListener("keydown", (event) => {
  if (event.key === "f" && !event.ctrlKey && !event.metaKey && !event.altKey) toggleFullScreen();
});

showForever();
)page";

const char kLivePageStyle[] = R"page(:root {
  color-scheme: dark;
  --back: #14171a;
  --bar: #1d2227;
  --line: #2d343b;
  --text: #e8ecf0;
  --quiet: #98a3ae;
  --live: #4cc38a;
  --wait: #e2a336;
  --lost: #e5645f;
}

* {
  box-sizing: border-box;
  margin: 0;
}

html,
body {
  height: 100%;
}

body {
  display: flex;
  flex-direction: column;
  background: var(--back);
  color: var(--text);
  font: 15px/1.4 "Segoe UI", system-ui, "DejaVu Sans", sans-serif;
}

header {
  display: flex;
  flex-wrap: wrap;
  align-items: center;
  gap: 8px 20px;
  padding: 10px 16px;
  background: var(--bar);
  border-bottom: 1px solid var(--line);
}

h1 {
  font-size: 16px;
  font-weight: 600;
}

#state::before {
  content: "";
  display: inline-block;
  width: 9px;
  height: 9px;
  margin-right: 8px;
  border-radius: 50%;
  background: var(--wait);
}

[data-state="live"] #state::before {
  background: var(--live);
}

[data-state="lost"] #state::before {
  background: var(--lost);
}

dl {
  display: flex;
  flex-wrap: wrap;
  gap: 4px 20px;
  margin-left: auto;
  font-variant-numeric: tabular-nums;
}

dl div {
  display: flex;
  gap: 6px;
}

dt {
  color: var(--quiet);
}

/* Room for the digits, so that nothing moves while they change. */
dd {
  min-width: 4.5em;
}

button {
  padding: 5px 14px;
  border: 1px solid var(--line);
  border-radius: 6px;
  background: #2a3138;
  color: inherit;
  font: inherit;
  cursor: pointer;
}

button:hover {
  background: #36404a;
}

button:focus-visible {
  outline: 2px solid var(--live);
  outline-offset: 2px;
}

main {
  display: flex;
  flex: 1;
  min-height: 0;
  align-items: center;
  justify-content: center;
  padding: 16px;
}

main:fullscreen {
  padding: 0;
  background: #000;
}

canvas,
img {
  max-width: 100%;
  max-height: 100%;
  background: #000;
  box-shadow: 0 2px 16px rgb(0 0 0 / 50%);
}

main:fullscreen canvas {
  width: 100%;
  height: 100%;
  object-fit: contain;
}

[data-state="lost"] canvas {
  opacity: 0.4;
}
)page";

const char kLivePageIcon[] =
    R"page(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 16 16"><rect x="1" y="2" width="14" height="10" rx="1.5" fill="#2a3138"/><circle cx="8" cy="7" r="2.6" fill="#4cc38a"/><rect x="5" y="13" width="6" height="1.5" fill="#98a3ae"/></svg>
)page";

} // namespace kxvcr
