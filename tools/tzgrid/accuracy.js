#!/usr/bin/env node
'use strict';
// Measures how well Quillmere's zone lookup agrees with geo-tz's exact polygon lookup
// (the same "alike since 1970" data set the grid was made from).
//
// Usage: node accuracy.js [--cli PATH] [--points N] [--seed N] [--grid FILE] [--show N]
//
// Samples N points uniformly over the sphere (land and sea alike; default 100,000, fixed
// seed), plus the city centres in cities.tsv, and asks both lookups. Ours is asked through
// `quillmere-cli zone --batch`, so it includes the sea-to-land search near coasts. With the
// grid file (default ../../resources/tzgrid.zlib) it also reports the raw cell's agreement,
// before that search, to tell rasterisation from the search.
// A point agrees when our zone is the first zone geo-tz names there (where boundaries
// overlap geo-tz names several; agreement with any of them is reported too).

const fs = require('fs');
const path = require('path');
const zlib = require('zlib');
const { spawnSync } = require('child_process');
const { find } = require('geo-tz');
const { decodeGrid } = require('./grid_format');

const ROOT = path.resolve(__dirname, '..', '..');

function parseArgs(argv) {
  const options = {
    cli: null,
    points: 100000,
    seed: 20240601,
    grid: path.join(ROOT, 'resources', 'tzgrid.zlib'),
    show: 15,
  };
  for (let i = 0; i < argv.length; i += 2) {
    const [flag, value] = [argv[i], argv[i + 1]];
    if (flag === '--cli') options.cli = path.resolve(value);
    else if (flag === '--points') options.points = Number(value);
    else if (flag === '--seed') options.seed = Number(value);
    else if (flag === '--grid') options.grid = path.resolve(value);
    else if (flag === '--show') options.show = Number(value);
    else throw new Error(`unknown argument ${flag}`);
  }
  if (!options.cli) {
    options.cli = ['release', 'debug'].map((kind) => path.join(ROOT, 'build', kind, 'cli',
                                                               'quillmere-cli'))
      .find((candidate) => fs.existsSync(candidate));
    if (!options.cli) throw new Error('no quillmere-cli built; pass --cli');
  }
  return options;
}

// mulberry32: a small seeded generator, so every run samples the same points.
function random(seed) {
  let state = seed >>> 0;
  return () => {
    state = (state + 0x6d2b79f5) >>> 0;
    let t = state;
    t = Math.imul(t ^ (t >>> 15), t | 1);
    t ^= t + Math.imul(t ^ (t >>> 7), t | 61);
    return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
  };
}

// Uniform over the sphere's area: latitude from the arcsine of a uniform height.
function samplePoints(count, seed) {
  const next = random(seed);
  const points = [];
  for (let i = 0; i < count; ++i) {
    const lat = (Math.asin(2 * next() - 1) * 180) / Math.PI;
    const lon = next() * 360 - 180;
    // Both lookups read the same printed text.
    points.push({ name: '', lat: Number(lat.toFixed(6)), lon: Number(lon.toFixed(6)) });
  }
  return points;
}

function readCities() {
  return fs.readFileSync(path.join(__dirname, 'cities.tsv'), 'utf8').split('\n')
    .filter((line) => line.trim() && !line.startsWith('#'))
    .map((line) => {
      const [name, lat, lon] = line.split('\t');
      return { name, lat: Number(lat), lon: Number(lon) };
    });
}

function askQuillmere(cli, points) {
  const input = points.map((p) => `${p.lat} ${p.lon}`).join('\n') + '\n';
  const result = spawnSync(cli, ['zone', '--batch'], {
    input, encoding: 'utf8', maxBuffer: 256 * 1024 * 1024,
  });
  if (result.status !== 0) throw new Error(`quillmere-cli failed: ${result.stderr}`);
  const lines = result.stdout.split('\n');
  lines.pop();
  if (lines.length !== points.length) throw new Error('quillmere-cli answered a wrong count');
  return lines;
}

function compare(label, points, ours, grid, show) {
  let first = 0, any = 0, raw = 0, coastal = 0;
  const misses = [];
  points.forEach((point, i) => {
    const theirs = find(point.lat, point.lon);
    if (ours[i] === theirs[0]) ++first;
    if (theirs.includes(ours[i])) ++any;
    else misses.push({ ...point, ours: ours[i], theirs: theirs.join('|') });
    // geo-tz's open sea where our sea search found land close by.
    if (theirs[0].startsWith('Etc/') && !ours[i].startsWith('Etc/') && ours[i] !== 'none' &&
        (!grid || grid.zoneAt(point.lat, point.lon) === theirs[0])) {
      ++coastal;
    }
    if (grid && grid.zoneAt(point.lat, point.lon) === theirs[0]) ++raw;
  });
  const percent = (n) => ((100 * n) / points.length).toFixed(3);
  console.log(`${label}: ${points.length} points`);
  console.log(`  agreement with geo-tz (its first zone): ${first} = ${percent(first)} %`);
  console.log(`  agreement with any zone geo-tz names:   ${any} = ${percent(any)} %`);
  if (grid) console.log(`  raw grid cell, before the sea search:   ${raw} = ${percent(raw)} %`);
  console.log(`  of the differences, open sea given the land zone within 0.1 degree: ${coastal}` +
              ` = ${percent(coastal)} %`);
  for (const miss of misses.slice(0, show)) {
    const where = miss.name ? `${miss.name} ` : '';
    console.log(`    ${where}${miss.lat} ${miss.lon}: ours ${miss.ours}, geo-tz ${miss.theirs}`);
  }
  if (misses.length > show) console.log(`    ... and ${misses.length - show} more`);
}

function main() {
  const options = parseArgs(process.argv.slice(2));
  const grid = fs.existsSync(options.grid)
    ? decodeGrid(zlib.inflateSync(fs.readFileSync(options.grid))) : null;
  const points = samplePoints(options.points, options.seed);
  compare('Random points (uniform over the sphere)', points, askQuillmere(options.cli, points),
          grid, options.show);
  const cities = readCities();
  compare('City centres', cities, askQuillmere(options.cli, cities), grid, cities.length);
}

main();
