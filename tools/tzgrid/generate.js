#!/usr/bin/env node
'use strict';
// Rasterises geo-tz's "alike since 1970" time zone polygons into Quillmere's grid resource
// (resources/tzgrid.zlib) and writes its notice (resources/tzgrid-NOTICE.txt).
//
// Usage: node generate.js [--resolution DEGREES] [--max-bytes N] [--out-dir DIR]
//
// Without --resolution the finest of the candidate resolutions whose compressed file fits in
// --max-bytes (default 4,000,000) is used, starting at 0.01 degree.
//
// Every cell takes the zone covering its centre, decided exactly as geo-tz's own lookup does:
// the cell centre descends geo-tz's quadtree; a leaf naming zones gives its first zone; a leaf
// with boundary polygons gives the first polygon that covers the centre (found by a scanline
// fill of each row, not by testing points); anything else is open sea, given the nautical
// Etc/GMT±n zone of its longitude.
//
// The grid is built in bands of rows so memory stays small whatever the resolution.

const fs = require('fs');
const path = require('path');
const zlib = require('zlib');
const { PRODUCT, geoTzVersion, loadIndex, FeatureFile, seaZone, ROOT } = require('./geo_tz_data');
const { encodeGrid } = require('./grid_format');

const CANDIDATE_RESOLUTIONS = [0.01, 0.0125, 0.015, 0.02, 0.025, 0.03, 0.04, 0.05, 0.06, 0.075, 0.1];
const BAND_ROWS = 64;
const UNSET = 0xffff;

function parseArgs(argv) {
  const options = {
    resolution: null,
    maxBytes: 4000000,
    outDir: path.resolve(__dirname, '..', '..', 'resources'),
  };
  for (let i = 0; i < argv.length; ++i) {
    const value = argv[i + 1];
    if (argv[i] === '--resolution') options.resolution = Number(value), ++i;
    else if (argv[i] === '--max-bytes') options.maxBytes = Number(value), ++i;
    else if (argv[i] === '--out-dir') options.outDir = path.resolve(value), ++i;
    else throw new Error(`unknown argument ${argv[i]}`);
  }
  return options;
}

// Cell geometry shared by every step, so the centres tested here are the ones the splits use.
class Grid {
  constructor(resolution) {
    this.resolution = resolution;
    this.cols = Math.round(360 / resolution);
    this.rows = Math.round(180 / resolution);
  }
  lat(row) {
    return 90 - (row + 0.5) * this.resolution;
  }
  lon(col) {
    return -180 + (col + 0.5) * this.resolution;
  }
  // First row in [r0, r1) whose centre lies south of `lat` (centres decrease with the row).
  firstRowBelow(r0, r1, lat) {
    let row = Math.floor((90 - lat) / this.resolution - 0.5);
    row = Math.min(Math.max(row, r0), r1);
    while (row > r0 && this.lat(row - 1) < lat) --row;
    while (row < r1 && this.lat(row) >= lat) ++row;
    return row;
  }
  // First column in [c0, c1) whose centre lies at or east of `lon`.
  firstColAtOrEast(c0, c1, lon) {
    let col = Math.ceil((lon + 180) / this.resolution - 0.5);
    col = Math.min(Math.max(col, c0), c1);
    while (col > c0 && this.lon(col - 1) >= lon) --col;
    while (col < c1 && this.lon(col) < lon) ++col;
    return col;
  }
  // First column in [c0, c1) whose centre lies east of `lon`.
  firstColEast(c0, c1, lon) {
    let col = Math.floor((lon + 180) / this.resolution - 0.5);
    col = Math.min(Math.max(col, c0), c1);
    while (col > c0 && this.lon(col - 1) > lon) --col;
    while (col < c1 && this.lon(col) <= lon) ++col;
    return col;
  }
}

// Flattens a feature's rings to coordinate arrays, with the zone's name index.
function prepareFeature(feature, nameIndex) {
  const geometry = feature.geometry;
  const polygons = geometry.type === 'Polygon' ? [geometry.coordinates]
    : geometry.type === 'MultiPolygon' ? geometry.coordinates : [];
  const rings = [];
  for (const polygon of polygons) {
    for (const ring of polygon) {
      const flat = new Float64Array(ring.length * 2);
      ring.forEach(([x, y], i) => { flat[2 * i] = x; flat[2 * i + 1] = y; });
      rings.push(flat);
    }
  }
  const zone = nameIndex.get(feature.properties.tzid);
  if (zone === undefined) throw new Error(`zone missing from the index: ${feature.properties.tzid}`);
  return { zone, rings };
}

class Rasteriser {
  constructor(grid, index, featureFile, nameIndex) {
    this.grid = grid;
    this.index = index;
    this.featureFile = featureFile;
    this.nameIndex = nameIndex;
    this.featureCache = new Map();  // quadtree path -> prepared features, kept while in use
    this.usedInBand = new Set();
    this.seaByCol = new Uint16Array(grid.cols);
    for (let col = 0; col < grid.cols; ++col) {
      this.seaByCol[col] = nameIndex.get(seaZone(grid.lon(col)));
    }
  }

  // Fills rows [bandStart, bandEnd) into `cells` (row-major, bandEnd - bandStart rows).
  fillBand(cells, bandStart, bandEnd) {
    this.cells = cells;
    this.bandStart = bandStart;
    this.usedInBand.clear();
    cells.fill(UNSET);
    this.descend(this.index.lookup, ROOT, '', bandStart, bandEnd, 0, this.grid.cols);
    // A leaf this band did not reach lies wholly above it, so later bands will not need it.
    for (const key of this.featureCache.keys()) {
      if (!this.usedInBand.has(key)) this.featureCache.delete(key);
    }
  }

  descend(node, quad, path, r0, r1, c0, c1) {
    const grid = this.grid;
    const k = grid.firstRowBelow(r0, r1, quad.midLat);  // rows [r0, k) lie north
    const j = grid.firstColAtOrEast(c0, c1, quad.midLon);  // columns [j, c1) lie east
    const { top, bottom, left, right, midLat, midLon } = quad;
    const children = [
      ['a', { top, bottom: midLat, left: midLon, right }, r0, k, j, c1],
      ['b', { top, bottom: midLat, left, right: midLon }, r0, k, c0, j],
      ['c', { top: midLat, bottom, left, right: midLon }, k, r1, c0, j],
      ['d', { top: midLat, bottom, left: midLon, right }, k, r1, j, c1],
    ];
    for (const [key, bounds, cr0, cr1, cc0, cc1] of children) {
      if (cr0 >= cr1 || cc0 >= cc1) continue;
      const child = node[key];
      const childPath = path + key;
      if (!child) {
        this.fillSea(cr0, cr1, cc0, cc1);
      } else if (child.pos >= 0 && child.len) {
        this.fillFeatures(childPath, child, cr0, cr1, cc0, cc1);
      } else if (Array.isArray(child) && child.length > 0) {
        this.fillZone(this.nameIndex.get(this.index.timezones[child[0]]), cr0, cr1, cc0, cc1);
      } else if (typeof child === 'object') {
        bounds.midLat = (bounds.top + bounds.bottom) / 2;
        bounds.midLon = (bounds.left + bounds.right) / 2;
        this.descend(child, bounds, childPath, cr0, cr1, cc0, cc1);
      } else {
        throw new Error(`unexpected quadtree node at ${childPath}`);
      }
    }
  }

  fillZone(zone, r0, r1, c0, c1) {
    const cols = this.grid.cols;
    for (let row = r0; row < r1; ++row) {
      const base = (row - this.bandStart) * cols;
      this.cells.fill(zone, base + c0, base + c1);
    }
  }

  fillSea(r0, r1, c0, c1) {
    const cols = this.grid.cols;
    for (let row = r0; row < r1; ++row) {
      const base = (row - this.bandStart) * cols;
      this.cells.set(this.seaByCol.subarray(c0, c1), base + c0);
    }
  }

  fillFeatures(key, node, r0, r1, c0, c1) {
    let features = this.featureCache.get(key);
    if (!features) {
      features = this.featureFile.read(node.pos, node.len)
        .map((feature) => prepareFeature(feature, this.nameIndex));
      this.featureCache.set(key, features);
    }
    this.usedInBand.add(key);
    const grid = this.grid;
    const cells = this.cells;
    const crossings = Array.from({ length: r1 - r0 }, () => []);
    // Earlier features win where polygons overlap, as in geo-tz's answer order.
    for (const { zone, rings } of features) {
      for (const list of crossings) list.length = 0;
      for (const ring of rings) {
        for (let i = 0; i + 3 < ring.length; i += 2) {
          const x1 = ring[i], y1 = ring[i + 1], x2 = ring[i + 2], y2 = ring[i + 3];
          if (y1 === y2) continue;
          const yMin = Math.min(y1, y2), yMax = Math.max(y1, y2);
          // Rows whose centre satisfies yMin <= lat < yMax: each crossing counted once.
          const first = grid.firstRowBelow(r0, r1, yMax);
          const last = grid.firstRowBelow(r0, r1, yMin);  // first row with lat < yMin
          for (let row = first; row < last; ++row) {
            const y = grid.lat(row);
            crossings[row - r0].push(x1 + ((y - y1) * (x2 - x1)) / (y2 - y1));
          }
        }
      }
      for (let row = r0; row < r1; ++row) {
        const xs = crossings[row - r0];
        if (xs.length < 2) continue;
        xs.sort((a, b) => a - b);
        const base = (row - this.bandStart) * grid.cols;
        for (let i = 0; i + 1 < xs.length; i += 2) {
          // Centres on the boundary count as inside, as geo-tz's point test has it.
          const from = grid.firstColAtOrEast(c0, c1, xs[i]);
          const to = grid.firstColEast(c0, c1, xs[i + 1]);
          for (let col = from; col < to; ++col) {
            if (cells[base + col] === UNSET) cells[base + col] = zone;
          }
        }
      }
    }
    // What no polygon covers is open sea.
    for (let row = r0; row < r1; ++row) {
      const base = (row - this.bandStart) * grid.cols;
      for (let col = c0; col < c1; ++col) {
        if (cells[base + col] === UNSET) cells[base + col] = this.seaByCol[col];
      }
    }
  }
}

// Run-length encodes one row: base-128 varint run length, then the 16-bit zone index.
function encodeRow(cells, base, cols, out) {
  let col = 0;
  while (col < cols) {
    const zone = cells[base + col];
    let end = col + 1;
    while (end < cols && cells[base + end] === zone) ++end;
    let length = end - col;
    while (length >= 0x80) {
      out.push((length & 0x7f) | 0x80);
      length >>>= 7;
    }
    out.push(length, zone & 0xff, zone >>> 8);
    col = end;
  }
}

function rasterise(resolution, index, names) {
  const grid = new Grid(resolution);
  const nameIndex = new Map(names.map((name, i) => [name, i]));
  const featureFile = new FeatureFile();
  const rasteriser = new Rasteriser(grid, index, featureFile, nameIndex);
  const cells = new Uint16Array(BAND_ROWS * grid.cols);
  const rowChunks = [];
  for (let bandStart = 0; bandStart < grid.rows; bandStart += BAND_ROWS) {
    const bandEnd = Math.min(bandStart + BAND_ROWS, grid.rows);
    rasteriser.fillBand(cells, bandStart, bandEnd);
    for (let row = bandStart; row < bandEnd; ++row) {
      const base = (row - bandStart) * grid.cols;
      for (let col = 0; col < grid.cols; ++col) {
        if (cells[base + col] === UNSET) throw new Error(`cell ${row},${col} left unfilled`);
      }
      const bytes = [];
      encodeRow(cells, base, grid.cols, bytes);
      rowChunks.push(Buffer.from(bytes));
    }
  }
  featureFile.close();
  return encodeGrid({ cols: grid.cols, rows: grid.rows, resolution, names, rowChunks });
}

function notice(resolution, cols, rows) {
  return [
    'Time zone grid (tzgrid.zlib)',
    '',
    'The file tzgrid.zlib is a raster of the world\'s time zones derived from the',
    `"${PRODUCT}" data set (time zones alike since 1970) of the timezone-boundary-builder`,
    `project by Evan Siroky, as packaged in the npm package geo-tz ${geoTzVersion()}.`,
    'The boundaries in that data set are built from OpenStreetMap data.',
    '',
    'Map data \u00a9 OpenStreetMap contributors. https://www.openstreetmap.org/copyright',
    '',
    'The data set, and this grid derived from it, are made available under the Open Data',
    'Commons Open Database License (ODbL) 1.0: https://opendatacommons.org/licenses/odbl/1-0/',
    '',
    `Grid: ${cols} x ${rows} cells of ${resolution} degree; each cell holds the zone covering`,
    'its centre; open sea outside territorial waters holds the nautical Etc/GMT zones.',
    'Regenerate with tools/tzgrid (npm ci && node generate.js).',
    '',
  ].join('\n');
}

function main() {
  const options = parseArgs(process.argv.slice(2));
  const index = loadIndex();
  const seaNames = [];
  for (let hours = -12; hours <= 12; ++hours) seaNames.push(seaZone(hours * 15));
  const names = [...new Set([...index.timezones, ...seaNames])].sort();
  const candidates = options.resolution ? [options.resolution]
    : CANDIDATE_RESOLUTIONS;
  for (const resolution of candidates) {
    const started = Date.now();
    const raw = rasterise(resolution, index, names);
    const compressed = zlib.deflateSync(raw, { level: 9, memLevel: 9 });
    const seconds = ((Date.now() - started) / 1000).toFixed(1);
    console.log(`resolution ${resolution}: ${raw.length} bytes, ${compressed.length} compressed ` +
                `(${seconds} s)`);
    if (compressed.length > options.maxBytes && !options.resolution) continue;
    fs.mkdirSync(options.outDir, { recursive: true });
    fs.writeFileSync(path.join(options.outDir, 'tzgrid.zlib'), compressed);
    const grid = new Grid(resolution);
    fs.writeFileSync(path.join(options.outDir, 'tzgrid-NOTICE.txt'),
                     notice(resolution, grid.cols, grid.rows));
    console.log(`wrote ${path.join(options.outDir, 'tzgrid.zlib')}`);
    return;
  }
  throw new Error('no candidate resolution fits');
}

main();
