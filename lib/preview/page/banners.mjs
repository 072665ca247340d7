const mostBanners = 3;

function dismissal(banner) {
  const close = document.createElement('button');
  close.type = 'button';
  close.className = 'quiet';
  close.textContent = 'Dismiss';
  close.addEventListener('click', () => banner.remove());
  return close;
}

/** Takes away the messages of a kind, all or those with other texts. */
export function removeBanners(kind, keptTexts = []) {
  for (const banner of document.querySelectorAll(`.banner.${kind}`)) {
    const { textContent } = banner.querySelector('span');
    if (!keptTexts.includes(textContent)) banner.remove();
  }
}

/**
 * Shows a message above everything. `kind` is "error", "notice", "trouble" or
 * "recovery"; one that `stays` cannot be dismissed.
 */
export function showBanner(kind, title, text, { stays = false } = {}) {
  const place = document.getElementById('banners');
  // The capture may repeat itself.
  for (const banner of place.children) {
    if (banner.dataset.text === `${title}${text}`) return;
  }
  const banner = document.createElement('div');
  banner.className = `banner ${kind}`;
  banner.dataset.text = `${title}${text}`;
  const heading = document.createElement('strong');
  heading.textContent = title;
  const body = document.createElement('span');
  body.textContent = text;
  banner.append(heading, body);
  if (!stays) banner.append(dismissal(banner));
  place.append(banner);
  while (place.children.length > mostBanners) place.firstChild.remove();
}
