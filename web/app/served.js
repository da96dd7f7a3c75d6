/** Browsers run no modules of a page that is opened as a file; this is no module and can say so. */
if (location.protocol === 'file:')
  document.getElementById('blank-text').textContent =
    'Browsers do not run this page from a folder. Serve it, for example with: python3 -m http.server';
