/** Light and dark: as the system says, until a person says otherwise. Nothing is kept from one visit to the next. */

/** @param {HTMLSelectElement} select @param {(scheme: 'light' | 'dark') => void} paint */
export function watchScheme(select, paint) {
  const system = window.matchMedia('(prefers-color-scheme: dark)');
  const apply = () => {
    const isDark = select.value === 'auto' ? system.matches : select.value === 'dark';
    document.documentElement.dataset.scheme = isDark ? 'dark' : 'light';
    paint(isDark ? 'dark' : 'light');
  };
  system.addEventListener('change', apply);
  select.addEventListener('change', apply);
  apply();
}
