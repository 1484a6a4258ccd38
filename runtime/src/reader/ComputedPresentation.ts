// What the engine computed of the reader's settings in the section on screen, for the answers of
// the configure methods: the native side checks that a setting took effect by these values.
import type { ConfigureThemeResult, ConfigureTypographyResult } from '../bridge/records';

interface SectionStyles {
  root: CSSStyleDeclaration;
  body: CSSStyleDeclaration;
  document: Document;
}

function sectionStyles(doc: Document | undefined): SectionStyles | undefined {
  const win = doc?.defaultView ?? null;
  if (doc === undefined || win === null || doc.body === null) return undefined;
  return { root: win.getComputedStyle(doc.documentElement), body: win.getComputedStyle(doc.body), document: doc };
}

function pixels(value: string | undefined): number | undefined {
  const parsed = value === undefined ? Number.NaN : Number.parseFloat(value);
  return Number.isFinite(parsed) ? parsed : undefined;
}

// The computed type of the section `doc` (the body's, a paragraph's, code's) and the viewport's
// start padding, each where the engine gives one.
export function computedTypography(doc: Document | undefined, viewport: HTMLElement): Partial<ConfigureTypographyResult> {
  const result: Partial<ConfigureTypographyResult> = {};
  const assign = <K extends keyof ConfigureTypographyResult>(key: K, value: ConfigureTypographyResult[K] | undefined) => {
    if (value !== undefined) result[key] = value;
  };
  assign('computedRootPaddingInlineStart', pixels(getComputedStyle(viewport).paddingInlineStart));
  const styles = sectionStyles(doc);
  if (styles === undefined) return result;
  const view = styles.document.defaultView as Window;
  const paragraph = styles.document.body?.querySelector('p');
  const paragraphStyle = paragraph ? view.getComputedStyle(paragraph) : styles.body;
  const code = styles.document.body?.querySelector('code, pre, kbd, samp');
  assign('computedRootFontSize', pixels(styles.root.fontSize));
  assign('computedBodyFontFamily', styles.body.fontFamily || undefined);
  assign('computedBodyFontSize', pixels(styles.body.fontSize));
  assign('computedParagraphLineHeight', pixels(paragraphStyle.lineHeight));
  assign('computedParagraphLetterSpacing', paragraphStyle.letterSpacing || undefined);
  assign('computedCodeLetterSpacing', code ? view.getComputedStyle(code).letterSpacing || undefined : undefined);
  assign('computedSemanticIndent', pixels(paragraphStyle.textIndent));
  return result;
}

// The colours of the section `doc`, or of the runtime page where no section is shown.
export function computedColors(doc: Document | undefined): Pick<ConfigureThemeResult, 'computedBodyColor' | 'computedBodyBackgroundColor'> {
  const styles = sectionStyles(doc);
  if (styles !== undefined) return { computedBodyColor: styles.body.color, computedBodyBackgroundColor: styles.root.backgroundColor };
  const page = getComputedStyle(document.body);
  return { computedBodyColor: page.color, computedBodyBackgroundColor: page.backgroundColor };
}

// The body's computed max-inline-size in the section `doc`, where it is a length.
export function computedBodyMaxInlineSize(doc: Document | undefined): number | undefined {
  return pixels(sectionStyles(doc)?.body.maxInlineSize);
}
