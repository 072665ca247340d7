const key = 'theme';
const darkQuery = '(prefers-color-scheme: dark)';

/** Follows the system until the button has been used. */
export function startTheme(button) {
  const system = matchMedia(darkQuery);
  const root = document.documentElement;
  const isDark = () => root.dataset.theme === 'auto' ? system.matches
    : root.dataset.theme === 'dark';
  const show = () => {
    button.textContent = isDark() ? 'Light' : 'Dark';
    button.setAttribute('aria-label',
      `Change to ${isDark() ? 'light' : 'dark'} colours`);
  };
  root.dataset.theme = localStorage.getItem(key) ?? 'auto';
  system.addEventListener('change', show);
  const toggle = () => {
    root.dataset.theme = isDark() ? 'light' : 'dark';
    localStorage.setItem(key, root.dataset.theme);
    show();
  };
  button.addEventListener('click', toggle);
  show();
  return { toggle };
}
