// The reader's settings and the style sheet that they give to a section document.
import type {
  ConfigureTypographyRequest,
  PageLayout,
  ReadingMode,
  ReadingThemeSelection,
  ScrolledContentWidth,
} from '../bridge/records';

export interface PresentationSettings {
  typography: ConfigureTypographyRequest | undefined;
  theme: ReadingThemeSelection;
  mode: ReadingMode;
  layout: PageLayout;
  scrolledWidth: ScrolledContentWidth;
  scrolledMaxInlineSize: number;
}

export const defaultPresentation: PresentationSettings = {
  typography: undefined,
  theme: 'system',
  mode: 'paginated',
  layout: 'adaptive',
  scrolledWidth: 'comfortable',
  scrolledMaxInlineSize: 700,
};

export interface ThemeColors {
  foreground: string;
  background: string;
}

const themeColors: Record<'light' | 'warm' | 'dark', ThemeColors> = {
  light: { foreground: '#1a1a1a', background: '#ffffff' },
  warm: { foreground: '#3b2f23', background: '#f6ecd9' },
  dark: { foreground: '#e3e3e3', background: '#1c1c1e' },
};

export function colorsForTheme(theme: ReadingThemeSelection, prefersDark: boolean): ThemeColors {
  if (theme === 'system') return themeColors[prefersDark ? 'dark' : 'light'];
  return themeColors[theme];
}

function quoteFamily(name: string): string {
  return `"${name.replace(/["\\]/g, '\\$&')}"`;
}

// Generic family keywords stay unquoted; every other name is quoted.
function familyList(names: string[]): string {
  const generic = new Set(['serif', 'sans-serif', 'monospace', 'cursive', 'fantasy', 'system-ui', '-apple-system']);
  return names.map((name) => (generic.has(name) ? name : quoteFamily(name))).join(', ');
}

// The runtime's style sheet for a section: typography and theme. Layout (columns, sizes) is set
// on the root element's style by the section view, since it depends on measures.
export function sectionStyleSheet(settings: PresentationSettings, colors: ThemeColors): string {
  const rules: string[] = [];
  // Notes open beside their references; asides that hold them stay out of the flow, as readers do.
  rules.push('@namespace epub "http://www.idpf.org/2007/ops";');
  rules.push(
    'aside[epub|type~="footnote"], aside[epub|type~="endnote"], aside[epub|type~="rearnote"], aside[role~="doc-footnote"], aside[role~="doc-endnote"] { display: none !important; }',
  );
  rules.push(`html { color: ${colors.foreground} !important; background: ${colors.background} !important; }`);
  rules.push(`body { color: ${colors.foreground} !important; background: transparent !important; }`);
  // Selection-free pages would otherwise show the book's own link colours on a dark page.
  if (colors.background !== themeColors.light.background) rules.push(`a:link, a:visited { color: inherit !important; }`);
  const typography = settings.typography;
  if (typography !== undefined) {
    if (typography.fontScale.mode === 'value' && typography.fontScale.value !== undefined) {
      rules.push(`html { font-size: ${typography.fontScale.value * 100}% !important; }`);
    }
    if (typography.font.mode === 'systemFont' && typography.font.cssFamilyName !== undefined) {
      const family = familyList([typography.font.cssFamilyName, ...typography.font.fallbackStack]);
      rules.push(`body, body p, body div, body span, body li, body h1, body h2, body h3, body h4, body h5, body h6 { font-family: ${family} !important; }`);
    }
    if (typography.lineHeight.mode === 'value' && typography.lineHeight.value !== undefined) {
      rules.push(`body, body p, body li, body div { line-height: ${typography.lineHeight.value} !important; }`);
    }
    if (typography.letterSpacing.mode === 'normal') {
      rules.push(`body, body p, body li { letter-spacing: normal !important; }`);
    } else if (typography.letterSpacing.mode === 'value' && typography.letterSpacing.value !== undefined) {
      rules.push(`body, body p, body li { letter-spacing: ${typography.letterSpacing.value}em !important; }`);
    }
  }
  if (settings.mode === 'scrolled') {
    rules.push(`body { max-inline-size: ${settings.scrolledMaxInlineSize}px !important; margin-inline: auto !important; }`);
  }
  rules.push('img, svg, video { max-inline-size: 100%; max-block-size: 95vh; object-fit: contain; }');
  return rules.join('\n');
}

// The page margin on each side of the page, in CSS pixels.
export function pageMarginPixels(settings: PresentationSettings, viewportWidth: number): number {
  const margins = settings.typography?.pageMargins;
  const percentage = margins?.mode === 'preset' && margins.inlinePercentage !== undefined ? margins.inlinePercentage : 4;
  return Math.round((viewportWidth * percentage) / 100);
}
