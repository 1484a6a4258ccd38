import { describe, expect, it } from 'vitest';
import { bridgeCatalogue } from '../../src/bridge/catalogue';
import {
  decodeBookmarkVisibilityRequest,
  decodeConfigureTypographyRequest,
  decodeLocator,
  decodeOpenPublicationRequest,
  decodeTextContext,
} from '../../src/bridge/decode';

// Each record the native side sends is decoded from its catalogue example with every field kept:
// a field the page reads under another name than the catalogue's would be lost here.
const examples = bridgeCatalogue.records;
const decoded: [string, () => unknown, unknown][] = [
  ['TextContext', () => decodeTextContext(examples.TextContext), examples.TextContext],
  ['Locator', () => decodeLocator(examples.Locator), examples.Locator],
  ['PublicationDescriptor', () => decodeOpenPublicationRequest({ publication: examples.PublicationDescriptor }), examples.PublicationDescriptor],
  ['ConfigureTypographyRequest', () => decodeConfigureTypographyRequest(examples.ConfigureTypographyRequest), examples.ConfigureTypographyRequest],
  ['BookmarkVisibilityCandidate', () => decodeBookmarkVisibilityRequest({ bookmarks: [examples.BookmarkVisibilityCandidate] })[0], examples.BookmarkVisibilityCandidate],
];

describe('BridgeRecordExamples', () => {
  it.each(decoded)('DecodesTheExampleOf%sWithEveryField', (_name, decode, example) => {
    expect(decode()).toEqual(example);
  });
});
