// The live page. It plays the recording's own packets through a media source, one appended fragment a picture, and
// keeps at the newest one; where there is no media source it shows the JPEG stream.
"use strict";

const RETRY_MS = 1000;
const SILENCE_MS = 5000; // the server says something every second
const STATUS_MS = 2000;
const RATE_SPAN_MS = 2000;
const LOOK_MS = 250; // between pictures whose delay is measured: a look at each would delay them all
const REFRESH_MS = 500;
const FASTEST = 1.08;
const SLOWEST = 0.97;
const MOST_BEHIND_S = 0.3;
const DECODER_TRIES = 3; // then pictures are shown, and the stream is tried again after a pause that grows
const FIRST_PAUSE_MS = 10000;
const LONGEST_PAUSE_MS = 600000;
const MOST_ARRIVALS = 300;
const SHORTEST_S = 0.024;
const SHARE_OF_SLOT = 5 / 6;
const SOUND_RESERVE_S = 0.06;
const TITLE = document.title;

const byId = (id) => document.getElementById(id);
const video = byId("picture");
const still = byId("still");
const MediaSourceType = window.ManagedMediaSource || window.MediaSource;

let decoderFailures = 0; // in a row
let streamFrom = 0; // the moment from which the stream may be tried
let startSound = null; // plays the sound of the stream that is shown; null when it has none
let sound = null; // what plays it
let shown = []; // of some of the last pictures: when each was displayed, and how long after its arrival
let counts = []; // of the pictures that the player was given so far, and when they were counted
let way = null; // milliseconds from the capture to this page, as far as the server and a request's time tell

class Trouble extends Error {}

// A text that is set is laid out and painted again, also when it is the same: beside it, the picture would wait.
function say(id, text) {
  if (byId(id).textContent !== text) byId(id).textContent = text;
}

function showState(state, text) {
  document.body.dataset.state = state;
  if (state === "live") byId("stage").dataset.hasPicture = "";
  say("state", text);
  say("notice", text);
}

// --- MP4: what must be known of its boxes ---

const viewOf = (bytes) => new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);

function joined(blocks) {
  const all = new Uint8Array(blocks.reduce((size, block) => size + block.length, 0));
  let at = 0;
  for (const block of blocks) {
    all.set(block, at);
    at += block.length;
  }
  return all;
}

function* boxesOf(bytes) {
  const view = viewOf(bytes);
  for (let at = 0; at + 8 <= bytes.length; ) {
    const size = view.getUint32(at);
    if (size < 8 || at + size > bytes.length) return;
    const type = String.fromCharCode(...bytes.subarray(at + 4, at + 8));
    yield { type, box: bytes.subarray(at, at + size), content: bytes.subarray(at + 8, at + size) };
    at += size;
  }
}

function inside(bytes, ...path) {
  let found = { content: bytes };
  for (const type of path) {
    found = [...boxesOf(found.content)].find((child) => child.type === type);
    if (!found) throw new Trouble("the stream is damaged");
  }
  return found.content;
}

// The tracks that a file's head names.
function tracksOf(head) {
  const tracks = new Map();
  for (const { type, box, content } of boxesOf(inside(head, "moov"))) {
    if (type !== "trak") continue;
    const isPicture = String.fromCharCode(...inside(content, "mdia", "hdlr").subarray(8, 12)) === "vide";
    const header = viewOf(inside(content, "mdia", "mdhd"));
    const timescale = header.getUint32(header.getUint8(0) === 1 ? 20 : 12);
    const id = inside(content, "tkhd");
    tracks.set(viewOf(id).getUint32(id[0] === 1 ? 20 : 12), { isPicture, timescale, box });
  }
  return tracks;
}

// A head in which a player finds one of the tracks alone: the other becomes a box that it skips.
function headOf(head, isPicture) {
  const copy = head.slice();
  for (const track of tracksOf(copy).values()) {
    if (track.isPicture !== isPicture) track.box.set([0x66, 0x72, 0x65, 0x65], 4); // "free"
  }
  return copy;
}

class Fragment {
  constructor(bytes, tracks) {
    const traf = inside(bytes, "moof", "traf");
    this.bytes = bytes;
    this.track = tracks.get(viewOf(inside(traf, "tfhd")).getUint32(4));
    this.timeField = viewOf(inside(traf, "tfdt")); // 64 bits behind version and flags
    this.run = viewOf(inside(traf, "trun")); // count, offset, then the duration of the one sample
    if (!this.track) throw new Trouble("the stream is damaged");
  }

  get time() {
    return Number(this.timeField.getBigUint64(4)) / this.track.timescale;
  }
  set time(seconds) {
    this.timeField.setBigUint64(4, BigInt(Math.round(seconds * this.track.timescale)));
  }
  get duration() {
    return this.run.getUint32(12) / this.track.timescale;
  }
  set duration(seconds) {
    this.run.setUint32(12, Math.round(seconds * this.track.timescale));
  }
  get isKey() {
    return (this.run.getUint32(20) & 0x10000) === 0;
  }
}

// Whole boxes out of a stream that comes in chunks.
class BoxReader {
  constructor(reader) {
    this.reader = reader;
    this.held = new Uint8Array(0);
  }

  async fill(size) {
    while (this.held.length < size) {
      const { done, value } = await withinTime(this.reader.read());
      if (done) throw new Trouble("the recording has ended");
      this.held = joined([this.held, value]);
    }
  }

  async next() {
    await this.fill(8);
    const size = viewOf(this.held).getUint32(0);
    const type = String.fromCharCode(...this.held.subarray(4, 8));
    await this.fill(size);
    const box = this.held.slice(0, size);
    this.held = this.held.subarray(size);
    return { type, box };
  }

  // Two boxes that belong together, e.g. "moof" and "mdat"; what stands between is skipped.
  async pair(first, second) {
    let begun = null;
    for (;;) {
      const { type, box } = await this.next();
      if (type === first) begun = box;
      if (type === second && begun) return joined([begun, box]);
    }
  }
}

function withinTime(promise) {
  let timer = 0;
  const late = new Promise((_, reject) => {
    timer = setTimeout(() => reject(new Trouble("nothing arrives from the server")), SILENCE_MS);
  });
  return Promise.race([promise, late]).finally(() => clearTimeout(timer));
}

// --- The media sources: one for the picture and one for the sound, each with a clock of its own ---

class Player {
  constructor(element, type, head, onFailure) {
    this.element = element;
    this.type = type;
    this.waiting = [head];
    this.end = 0; // media time of the newest fragment's end
    this.onFailure = onFailure;
    this.onError = () => this.fail();
  }

  static plays(type) {
    return Boolean(MediaSourceType) && MediaSourceType.isTypeSupported(type);
  }

  async open() {
    const source = new MediaSourceType();
    this.address = URL.createObjectURL(source);
    this.element.disableRemotePlayback = true;
    this.element.addEventListener("error", this.onError);
    const opened = new Promise((resolve) => source.addEventListener("sourceopen", resolve, { once: true }));
    this.element.src = this.address;
    await opened;
    source.duration = Infinity;
    this.buffer = source.addSourceBuffer(this.type);
    this.buffer.addEventListener("updateend", () => this.go());
    this.buffer.addEventListener("error", this.onError);
    this.go();
  }

  close() {
    this.isClosed = true;
    this.element.removeEventListener("error", this.onError);
    URL.revokeObjectURL(this.address);
  }

  fail() {
    if (this.isClosed) return;
    this.isClosed = true;
    this.onFailure();
  }

  add(fragment) {
    const ahead = this.end - this.element.currentTime;
    fragment.duration = this.durationOf(fragment, ahead);
    fragment.time = this.end;
    this.end += fragment.duration;
    this.waiting.push(fragment.bytes);
    this.go();
  }

  go() {
    if (this.isClosed || !this.buffer || this.buffer.updating) return;
    try {
      this.keepAtTheEdge();
      if (this.waiting.length > 0) this.buffer.appendBuffer(joined(this.waiting.splice(0)));
      else this.forget();
    } catch (failure) {
      this.fail();
    }
  }

  keepAtTheEdge() {
    const { element } = this;
    if (element.buffered.length === 0) return;
    const ahead = this.end - element.currentTime;
    if (ahead > MOST_BEHIND_S) element.currentTime = this.end - this.reserve;
    const rate = this.rateFor(ahead);
    if (element.playbackRate !== rate) element.playbackRate = rate;
    if (element.paused && !document.hidden) element.play().catch(() => {});
  }
}

// The picture's clock knows no pauses, and a picture lasts a little less there than until the next one comes: the player
// has always played everything when a picture arrives, and shows it at once. One that is shorter than a display's might
// be passed over.
class PicturePlayer extends Player {
  constructor(...rest) {
    super(video, ...rest);
    this.reserve = 0.001;
    this.arrivals = []; // media time and moment
    this.keys = []; // media times of key pictures
  }

  add(fragment) {
    super.add(fragment);
    this.arrivals.push({ time: fragment.time, moment: performance.now() });
    if (this.arrivals.length > MOST_ARRIVALS) this.arrivals.shift();
    if (fragment.isKey) this.keys.push(fragment.time);
  }

  durationOf(fragment, ahead) {
    const slot = fragment.duration;
    return ahead > slot ? slot / 2 : Math.max(slot * SHARE_OF_SLOT, SHORTEST_S);
  }

  rateFor() {
    return FASTEST;
  }

  // Removing takes everything up to the next key picture along, so it ends at one.
  forget() {
    const old = this.keys.filter((time) => time < video.currentTime - 1);
    if (old.length < 2) return;
    this.keys.splice(0, old.length - 1);
    this.buffer.remove(0, this.keys[0]);
  }

  // A picture is on the display. Its delay counts when it came after it was looked for: an older one may have been
  // there before. Says whether it counts.
  note(mediaTime, moment, lookedFor) {
    const arrival = this.arrivals.filter((picture) => picture.time <= mediaTime + 0.0001).pop();
    const counts = arrival !== undefined && arrival.moment >= lookedFor;
    if (counts) shown.push({ moment, late: Math.max(moment - arrival.moment, 0) });
    decoderFailures = 0;
    showState("live", "Live");
    return counts;
  }
}

// The sound is kept a little behind its newest piece, so that it does not stutter.
class SoundPlayer extends Player {
  constructor(...rest) {
    super(byId("heard"), ...rest);
    this.reserve = SOUND_RESERVE_S;
  }

  durationOf(fragment) {
    return fragment.duration;
  }

  rateFor(ahead) {
    if (ahead > 2 * SOUND_RESERVE_S) return FASTEST;
    return ahead < SOUND_RESERVE_S / 2 ? SLOWEST : 1;
  }

  forget() {
    const old = this.element.currentTime - 10;
    if (old > 10 && this.element.buffered.start(0) < old - 10) this.buffer.remove(0, old);
  }
}

function stopSound() {
  if (sound) sound.close();
  sound = null;
  byId("heard").removeAttribute("src");
  byId("sound").setAttribute("aria-pressed", "false");
}

function offerSound(head, codec) {
  const type = `audio/mp4; codecs="${codec}"`;
  startSound = null;
  if (codec && Player.plays(type)) {
    startSound = () => {
      sound = new SoundPlayer(type, headOf(head, false), stopSound);
      sound.open().catch(stopSound);
      byId("sound").setAttribute("aria-pressed", "true");
    };
  }
  byId("sound").hidden = startSound === null;
}

function noteDecoderFailure() {
  decoderFailures += 1;
  if (decoderFailures < DECODER_TRIES) return;
  const pauseMs = FIRST_PAUSE_MS * 2 ** (decoderFailures - DECODER_TRIES);
  streamFrom = performance.now() + Math.min(pauseMs, LONGEST_PAUSE_MS);
}

// Notes pictures when they are on the display, with a pause behind each one that counts.
function watchDisplay(player) {
  let lookedFor = 0;
  const look = () => {
    lookedFor = performance.now();
    video.requestVideoFrameCallback(noteDisplayed);
  };
  const noteDisplayed = (now, picture) => {
    if (player.isClosed) return;
    const isCounted = player.note(picture.mediaTime, picture.expectedDisplayTime, lookedFor);
    if (isCounted) setTimeout(look, LOOK_MS);
    else look();
  };
  if (video.requestVideoFrameCallback) look();
  else video.addEventListener("timeupdate", () => showState("live", "Live"), { once: true });
}

async function playVideo(answer) {
  const codecs = /codecs="(.*)"/.exec(answer.headers.get("Content-Type"))[1].split(",");
  const reader = answer.body.getReader();
  let hasFailed = false;
  const player = { picture: null };
  try {
    const boxes = new BoxReader(reader);
    const head = await boxes.pair("ftyp", "moov");
    const tracks = tracksOf(head);
    player.picture = new PicturePlayer(`video/mp4; codecs="${codecs[0]}"`, headOf(head, true), () => {
      hasFailed = true;
      noteDecoderFailure();
      reader.cancel().catch(() => {});
    });
    await player.picture.open();
    const wasHeard = sound !== null;
    stopSound();
    offerSound(head, codecs[1]);
    if (wasHeard && startSound) startSound();
    counts = [];
    watchDisplay(player.picture);
    for (;;) {
      const fragment = new Fragment(await boxes.pair("moof", "mdat"), tracks);
      if (fragment.track.isPicture) player.picture.add(fragment);
      else if (sound) sound.add(fragment);
    }
  } catch (failure) {
    throw hasFailed ? new Trouble("the picture could not be decoded") : failure;
  } finally {
    if (player.picture) player.picture.close();
    reader.cancel().catch(() => {});
  }
}

// --- The JPEG stream ---

// Until the moment has come to try the stream again.
async function playPictures(until) {
  still.src = `stream?${Date.now()}`;
  try {
    await new Promise((resolve, reject) => {
      still.onload = resolve;
      still.onerror = () => reject(new Trouble("the server sends no picture"));
    });
    showState("live", "Live");
    for (;;) {
      await askStatus();
      const left = until - performance.now();
      if (left <= 0) return;
      await pause(Math.min(left, STATUS_MS));
    }
  } finally {
    still.removeAttribute("src");
  }
}

// --- What the page does ---

const pause = (milliseconds) => new Promise((resolve) => setTimeout(resolve, milliseconds));

function complaintAbout(status) {
  if (status === 503) return "all viewers' places are taken";
  if (status === 404) return "this address is not valid any more; ask for the new one";
  return `the server answered ${status}`;
}

async function get(path) {
  const answer = await withinTime(fetch(path, { cache: "no-store" }));
  if (!answer.ok) throw new Trouble(complaintAbout(answer.status));
  return answer;
}

async function askStatus() {
  const asked = performance.now();
  const status = await (await get("status")).json();
  const halfWay = (performance.now() - asked) / 2;
  way = status.delayMilliseconds === null ? null : status.delayMilliseconds + halfWay;
  say("size", `${status.width} \u00d7 ${status.height}`);
  if (!still.hidden) say("rate", `${status.framesPerSecond} fps`);
  return status;
}

async function show() {
  const status = await askStatus();
  const canBeVideo = status.codec === "h264" && Boolean(MediaSourceType);
  const isVideo = canBeVideo && performance.now() >= streamFrom;
  video.hidden = !isVideo;
  still.hidden = isVideo;
  if (isVideo) await playVideo(await get("stream.mp4"));
  else await playPictures(canBeVideo ? streamFrom : Infinity);
}

async function showForever() {
  for (;;) {
    try {
      await show();
    } catch (failure) {
      showState("lost", `Trying again: ${failure instanceof Trouble ? failure.message : "no connection"}`);
      await pause(RETRY_MS);
    }
  }
}

function median(numbers) {
  return numbers.sort((a, b) => a - b)[Math.floor(numbers.length / 2)];
}

// Pictures a second that the player was given, in the span that is looked at. Chromium calls many of them dropped that
// were displayed, because the player has nothing left whenever one comes.
function rateShown() {
  const now = performance.now();
  counts.push({ moment: now, pictures: video.getVideoPlaybackQuality().totalVideoFrames });
  while (counts.length > 1 && counts[1].moment <= now - RATE_SPAN_MS) counts.shift();
  const first = counts[0];
  const span = Math.max(now - first.moment, REFRESH_MS);
  return ((counts[counts.length - 1].pictures - first.pictures) * 1000) / span;
}

function refresh() {
  const isLive = document.body.dataset.state === "live";
  if (still.hidden) {
    say("rate", isLive ? `${rateShown().toFixed(1)} fps` : "\u2013");
    shown = shown.filter((picture) => picture.moment > performance.now() - RATE_SPAN_MS);
    const delay = way === null || shown.length === 0 ? null : way + median(shown.map((picture) => picture.late));
    say("delay", isLive && delay !== null ? `${Math.round(delay)} ms` : "\u2013");
  }
  document.title = isLive ? `${byId("rate").textContent} \u2013 ${TITLE}` : TITLE;
}

function toggleFullScreen() {
  const stage = byId("stage");
  if (document.fullscreenElement) document.exitFullscreen();
  else if (stage.requestFullscreen) stage.requestFullscreen();
  else if (video.webkitEnterFullscreen) video.webkitEnterFullscreen();
}

function toggleSound() {
  if (sound) stopSound();
  else if (startSound) startSound();
}

const KEYS = { f: toggleFullScreen, m: toggleSound, s: () => byId("snapshot").click() };

byId("full").addEventListener("click", toggleFullScreen);
byId("stage").addEventListener("dblclick", toggleFullScreen);
byId("sound").addEventListener("click", toggleSound);
byId("snapshot").addEventListener("click", () => {
  const moment = new Date().toISOString().slice(0, 19).replace(/:/g, ".");
  byId("snapshot").download = `screen ${moment}.jpg`;
});
document.addEventListener("keydown", (event) => {
  if (event.ctrlKey || event.metaKey || event.altKey || event.repeat) return;
  const action = KEYS[event.key.toLowerCase()];
  if (action) action();
});
setInterval(refresh, REFRESH_MS);
setInterval(() => {
  if (document.body.dataset.state === "live" && still.hidden) askStatus().catch(() => {});
}, STATUS_MS);

showForever();
