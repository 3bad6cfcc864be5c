// WAVE files with markers, labelled markers, regions and INFO text, written by the npm
// "wavefile" package (an independent writer). Usage: node make_wavefile.js OUTDIR
// Cue positions are given in milliseconds; wavefile rounds them to samples.
const fs = require('fs');
const path = require('path');
const { WaveFile } = require('wavefile');
const out = process.argv[2] || '.';

function silence(n) { return new Array(n).fill(0); }

// 1 s mono 16-bit at 44100 Hz: two labelled markers, one region, and INFO text.
{
  const w = new WaveFile();
  w.fromScratch(1, 44100, '16', silence(44100));
  w.setCuePoint({ position: 0, label: 'Start' });
  w.setCuePoint({ position: 250, label: 'Verse one' });
  w.setCuePoint({ position: 500, end: 750, label: 'Chorus' });
  w.setTag('INAM', 'Take five');
  w.setTag('IART', 'Orvanel test band');
  w.setTag('ICMT', 'odd');
  fs.writeFileSync(path.join(out, 'wf_markers.wav'), w.toBuffer());
}

// 0.5 s stereo 24-bit at 48000 Hz: a marker without a label and a region with one.
{
  const w = new WaveFile();
  w.fromScratch(2, 48000, '24', [silence(24000), silence(24000)]);
  w.setCuePoint({ position: 100 });
  w.setCuePoint({ position: 200, end: 450, label: 'Bridge' });
  fs.writeFileSync(path.join(out, 'wf_region24.wav'), w.toBuffer());
}

// 0.25 s mono 32-bit float at 22050 Hz with INFO text only.
{
  const w = new WaveFile();
  w.fromScratch(1, 22050, '32f', silence(5512));
  w.setTag('INAM', 'Float title');
  w.setTag('ICOP', '2026');
  fs.writeFileSync(path.join(out, 'wf_float_info.wav'), w.toBuffer());
}
