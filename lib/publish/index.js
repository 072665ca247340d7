'use strict';

const { PublishError, publishErrorCodes } = require('./errors.js');
const { readPublishOptions, readUrl } = require('./options.js');
const { Publication } = require('./publication.js');

/**
 * Sends a running capture to a server that speaks WHIP; resolves when media
 * goes.
 */
async function publish(capture, options = {}) {
  const publication =
    new Publication(capture, readPublishOptions(capture, options));
  await publication.start();
  return publication;
}

/** Throws for what is no address to publish to. */
const checkAddress = (url) => void readUrl(url);

module.exports = { PublishError, checkAddress, publish, publishErrorCodes };
