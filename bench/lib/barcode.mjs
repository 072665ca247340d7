// Reads the numbers that scene/barcode.cc writes into the pictures.

export const barcodeCells = 32;
const checkBits = 12;
const numberBits = barcodeCells - checkBits;
const polynomial = 0x80f;

/** The check bits that belong to a number. */
export function checkBitsOf(number) {
  let remainder = 0xa5a;
  for (let bit = numberBits - 1; bit >= 0; bit -= 1) {
    const top = remainder >> (checkBits - 1);
    remainder = (remainder << 1) & ((1 << checkBits) - 1);
    if (top !== ((number >> bit) & 1)) remainder ^= polynomial;
  }
  return remainder;
}

/**
 * The number in a row of cells given by their mean brightness, 0 to 255, or
 * null when the check bits say that these are not the cells of any number.
 */
export function readBarcode(brightness) {
  let number = 0;
  let check = 0;
  for (let cell = 0; cell < barcodeCells; cell += 1) {
    const bit = brightness[cell] >= 128 ? 1 : 0;
    if (cell < numberBits) number = number * 2 + bit;
    else check = check * 2 + bit;
  }
  return check === checkBitsOf(number) ? number : null;
}
