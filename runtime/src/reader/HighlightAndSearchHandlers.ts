// The bridge methods of highlights and search, bound to the modules that do their work.
import type { BridgePayload, MethodHandler } from '../bridge/BridgeTransport';
import {
  decodeAnnotationIDRequest,
  decodeAnnotationRequest,
  decodeCancelSearchRequest,
  decodeStartSearchRequest,
  type DecodedRuntimeAnnotation,
} from '../bridge/decode';

export interface AnnotationOperations {
  add(annotation: DecodedRuntimeAnnotation): Promise<{ rendered: boolean; resolution: string }>;
  remove(id: string): Promise<{ rendered: boolean; resolution: string }>;
  pulse(id: string): Promise<{ rendered: boolean; resolution: string }>;
}

export interface SearchOperations {
  // Starts the work and returns at once; the results go up as events.
  start(searchID: string, query: string): Promise<void>;
  cancel(searchID: string): void;
}

export function makeHighlightAndSearchHandlers(annotations: AnnotationOperations, search: SearchOperations): Map<string, MethodHandler> {
  return new Map<string, MethodHandler>([
    ['addAnnotation', (payload: BridgePayload) => annotations.add(decodeAnnotationRequest(payload))],
    ['removeAnnotation', (payload: BridgePayload) => annotations.remove(decodeAnnotationIDRequest(payload))],
    ['pulseAnnotation', (payload: BridgePayload) => annotations.pulse(decodeAnnotationIDRequest(payload))],
    [
      'startSearch',
      (payload: BridgePayload) => {
        const request = decodeStartSearchRequest(payload);
        // Not awaited: the answer goes at once, the batches follow.
        void search.start(request.searchID, request.query).catch(() => undefined);
        return { searchID: request.searchID };
      },
    ],
    [
      'cancelSearch',
      (payload: BridgePayload) => {
        search.cancel(decodeCancelSearchRequest(payload));
        return {};
      },
    ],
  ]);
}
