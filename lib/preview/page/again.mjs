// Runs on the page that refuses. The first address is good for one use, and
// where it led is known to the browser that used it: there it leads on.
const base = localStorage.getItem('base');
if (location.pathname === '/' && /^\/[\w-]{16}\/$/.test(base ?? '')) {
  location.replace(base);
}
