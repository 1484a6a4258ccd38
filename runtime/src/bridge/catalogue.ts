// Typed access to the bridge catalogue. The catalogue itself lives in catalogue.json, the one table
// of method and event names that the native side also reads, so the two sides cannot drift apart.
import catalogueJSON from './catalogue.json';

export interface CatalogueMethod {
  readonly name: string;
  readonly request: readonly string[];
  readonly result: string;
}

export interface CatalogueEvent {
  readonly name: string;
  readonly payloadKeys: readonly string[];
}

export interface BridgeCatalogue {
  readonly protocolVersion: number;
  readonly responseEventName: string;
  readonly eventEventName: string;
  readonly methods: readonly CatalogueMethod[];
  readonly events: readonly CatalogueEvent[];
}

export const bridgeCatalogue: BridgeCatalogue = catalogueJSON;

export const bridgeMethodNames: ReadonlySet<string> = new Set(bridgeCatalogue.methods.map((method) => method.name));

export const bridgeEventNames: ReadonlySet<string> = new Set(bridgeCatalogue.events.map((event) => event.name));
