'use strict';
// Access to the "alike since 1970" time zone data set that the geo-tz package ships: its
// quadtree index (leaves naming whole-cell zones, or pointing at boundary polygons clipped to
// the cell in the geobuf file) and the nautical zones it answers for open sea.

const fs = require('fs');
const path = require('path');
const geobuf = require('geobuf');
const Pbf = require('pbf');

const PRODUCT = 'timezones-1970.geojson';
// The package exports only its lookup entry points; its data lives beside them.
const GEO_TZ_DIR = path.resolve(path.dirname(require.resolve('geo-tz')), '..');
const DATA_DIR = path.join(GEO_TZ_DIR, 'data');

function geoTzVersion() {
  return JSON.parse(fs.readFileSync(path.join(GEO_TZ_DIR, 'package.json'), 'utf8')).version;
}

function loadIndex() {
  return JSON.parse(fs.readFileSync(path.join(DATA_DIR, `${PRODUCT}.index.json`), 'utf8'));
}

class FeatureFile {
  constructor() {
    this.fd = fs.openSync(path.join(DATA_DIR, `${PRODUCT}.geo.dat`), 'r');
  }
  // The boundary features of one quadtree leaf, in the order geo-tz tests them.
  read(pos, len) {
    const buffer = Buffer.alloc(len);
    const got = fs.readSync(this.fd, buffer, 0, len, pos);
    if (got !== len) throw new Error(`short read of geo.dat at ${pos}`);
    return geobuf.decode(new Pbf(buffer)).features;
  }
  close() {
    fs.closeSync(this.fd);
  }
}

// Open sea: 15-degree bands centred on multiples of 15 degrees; the east-most band that
// touches the longitude wins, as in geo-tz's own list order.
function seaZone(lon) {
  for (let hours = 12; hours >= -12; --hours) {
    const left = Math.max(-180, hours * 15 - 7.5);
    const right = Math.min(180, hours * 15 + 7.5);
    if (left <= lon && lon <= right) {
      if (hours === 0) return 'Etc/GMT';
      // The Etc names count hours west of Greenwich as positive.
      return hours > 0 ? `Etc/GMT-${hours}` : `Etc/GMT+${-hours}`;
    }
  }
  throw new Error(`longitude out of range: ${lon}`);
}

// The quadtree's root, exactly as geo-tz starts its descent.
const ROOT = { top: 89.9999, bottom: -89.9999, left: -179.9999, right: 179.9999, midLat: 0, midLon: 0 };

module.exports = { PRODUCT, GEO_TZ_DIR, geoTzVersion, loadIndex, FeatureFile, seaZone, ROOT };
