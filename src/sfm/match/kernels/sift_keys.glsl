// A dot product of two descriptors and a place in a tile of 64 in one number, so that the larger number is the nearer and,
// among equals, the earlier: at most 128 * 255^2 < 2^23 and 6 bits. A key of no dot product is near to nothing.
const uint kTile = 64u;
const uint kPlaceBits = 6u;

uint keyOf(uint dots, uint place) { return (dots << kPlaceBits) | (kTile - 1u - place); }
uint dotsOf(uint key) { return key >> kPlaceBits; }
uint placeOf(uint key) { return kTile - 1u - (key & (kTile - 1u)); }

// Takes a key into the best two.
void take(inout uvec2 two, uint key) {
  two.y = max(two.y, min(two.x, key));
  two.x = max(two.x, key);
}

vec4 bytesOf(uint word) { return vec4(word & 255u, (word >> 8) & 255u, (word >> 16) & 255u, word >> 24); }
