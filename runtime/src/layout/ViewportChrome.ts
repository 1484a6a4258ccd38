// The runtime page around the sections: its theme colours, the scrolled classes of the viewport
// and the page margin on its start side.
import { colorsForTheme, pageMarginPixels, type PresentationSettings } from './Presentation';
import type { SectionView, Viewport } from './SectionView';

export function applyPageChrome(viewport: HTMLElement, settings: PresentationSettings, measures: Viewport): void {
  const colors = colorsForTheme(settings.theme, measures.prefersDark);
  document.body.style.setProperty('--reader-background', colors.background);
  document.body.style.setProperty('--reader-foreground', colors.foreground);
  viewport.classList.toggle('scrolled', settings.mode === 'scrolled');
  viewport.style.setProperty('padding-inline-start', `${pageMarginPixels(settings, measures.width)}px`);
}

// A scrolled section in vertical writing scrolls sideways, others up and down; whatever the other
// axis scrolled is left behind.
export function applyScrollAxis(viewport: HTMLElement, view: SectionView): void {
  viewport.classList.toggle('scrolled-across', view.scrollsAcross);
  if (view.scrollsAcross) viewport.scrollTop = 0;
  else viewport.scrollLeft = 0;
}
