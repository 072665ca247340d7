'use strict';

const { abortError, argumentError } = require('./errors.js');

/** The options object, with nothing in it but the named keys. */
function requireObject(value, name, keys) {
  if (value === null || typeof value !== 'object' || Array.isArray(value)) {
    throw argumentError(`${name} must be an object`);
  }
  for (const key of Object.keys(value)) {
    if (!keys.includes(key)) {
      throw argumentError(
        `${name} has no option "${key}"; there are ${keys.join(', ')}`);
    }
  }
  return value;
}

function requireInteger(value, name, minimum, maximum = 2 ** 31 - 1) {
  if (!Number.isInteger(value) || value < minimum || value > maximum) {
    throw argumentError(
      `${name} must be a whole number from ${minimum} to ${maximum}`);
  }
  return value;
}

function requireText(value, name) {
  if (typeof value !== 'string' || value === '') {
    throw argumentError(`${name} must be a text that is not empty`);
  }
  return value;
}

function requireOneOf(value, name, allowed) {
  if (!allowed.includes(value)) {
    throw argumentError(`${name} must be one of ${
      allowed.map((entry) => JSON.stringify(entry)).join(', ')}`);
  }
  return value;
}

/** Throws where the signal of a call is none, or has already been given. */
function checkSignal(signal) {
  if (signal !== undefined && !(signal instanceof AbortSignal)) {
    throw argumentError('signal must be an AbortSignal');
  }
  if (signal?.aborted) throw abortError(signal);
}

/** The one key of several that the object has. */
function requireExactlyOne(object, name, keys) {
  const given = keys.filter((key) => object[key] !== undefined);
  if (given.length !== 1) {
    throw argumentError(`${name} needs exactly one of ${keys.join(', ')}`);
  }
  return given[0];
}

module.exports = {
  checkSignal, requireExactlyOne, requireInteger, requireObject, requireOneOf,
  requireText,
};
