'use strict';
// The uncompressed grid layout, all integers little-endian:
//   "TZG1", cols u32, rows u32, resolution f64, nameCount u16,
//   names (length u8 + UTF-8 bytes each), rowOffsets (u32 per row, from the row data's start),
//   row data (per row, west to east: varint run length, u16 zone index; 0xFFFF = no zone).

function encodeGrid({ cols, rows, resolution, names, rowChunks }) {
  if (names.length > 0xfffe) throw new Error('too many zone names');
  if (rowChunks.length !== rows) throw new Error('one chunk per row expected');
  const header = Buffer.alloc(22);
  header.write('TZG1', 0, 'ascii');
  header.writeUInt32LE(cols, 4);
  header.writeUInt32LE(rows, 8);
  header.writeDoubleLE(resolution, 12);
  header.writeUInt16LE(names.length, 20);
  const nameParts = names.map((name) => {
    const bytes = Buffer.from(name, 'utf8');
    if (bytes.length > 255) throw new Error(`zone name too long: ${name}`);
    return Buffer.concat([Buffer.from([bytes.length]), bytes]);
  });
  const offsets = Buffer.alloc(4 * rows);
  let position = 0;
  rowChunks.forEach((chunk, row) => {
    offsets.writeUInt32LE(position, 4 * row);
    position += chunk.length;
  });
  if (position > 0xffffffff) throw new Error('row data too large');
  return Buffer.concat([header, ...nameParts, offsets, ...rowChunks]);
}

// Reads a grid back (for checks): the zone name of a cell, without any sea-to-land search.
function decodeGrid(buffer) {
  if (buffer.toString('ascii', 0, 4) !== 'TZG1') throw new Error('not a time zone grid');
  const cols = buffer.readUInt32LE(4);
  const rows = buffer.readUInt32LE(8);
  const resolution = buffer.readDoubleLE(12);
  const nameCount = buffer.readUInt16LE(20);
  const names = [];
  let position = 22;
  for (let i = 0; i < nameCount; ++i) {
    const length = buffer[position];
    names.push(buffer.toString('utf8', position + 1, position + 1 + length));
    position += 1 + length;
  }
  const rowDataStart = position + 4 * rows;
  const cellZone = (row, col) => {
    if (row < 0 || row >= rows) return null;
    let at = rowDataStart + buffer.readUInt32LE(position + 4 * row);
    let end = 0;
    for (;;) {
      let length = 0;
      for (let shift = 0; ; shift += 7) {
        const byte = buffer[at++];
        length += (byte & 0x7f) * 2 ** shift;
        if ((byte & 0x80) === 0) break;
      }
      const zone = buffer.readUInt16LE(at);
      at += 2;
      end += length;
      if (col < end) return zone === 0xffff ? null : names[zone];
      if (end >= cols) return null;
    }
  };
  const zoneAt = (lat, lon) => cellZone(Math.floor((90 - Math.min(lat, 89.999)) / resolution),
                                        Math.floor(((lon === 180 ? -180 : lon) + 180) / resolution));
  return { cols, rows, resolution, names, cellZone, zoneAt };
}

module.exports = { encodeGrid, decodeGrid };
