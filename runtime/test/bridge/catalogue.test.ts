import { describe, expect, it } from 'vitest';
import { bridgeCatalogue } from '../../src/bridge/catalogue';

describe('BridgeCatalogue', () => {
  it('NamesEachMethodOnce', () => {
    const names = bridgeCatalogue.methods.map((method) => method.name);
    expect(new Set(names).size).toBe(names.length);
    expect(names).toEqual([
      'open',
      'tableOfContents',
      'next',
      'previous',
      'nextSection',
      'previousSection',
      'goTo',
      'currentLocator',
      'currentSelection',
      'configureTypography',
      'configureTheme',
      'configureReadingMode',
      'configurePageLayout',
      'configureScrolledContentWidth',
      'configureBookmarkVisibility',
      'addAnnotation',
      'removeAnnotation',
      'pulseAnnotation',
      'startSearch',
      'cancelSearch',
    ]);
  });

  it('GivesGoToBothPayloadShapes', () => {
    expect(bridgeCatalogue.methods.find((method) => method.name === 'goTo')?.request).toEqual(['GoToRequest', 'GoToLocatorRequest']);
  });

  it('NamesEachEventOnce', () => {
    const names = bridgeCatalogue.events.map((event) => event.name);
    expect(new Set(names).size).toBe(names.length);
  });
});
