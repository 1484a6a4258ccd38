// A failure that the runtime reports to the native side as `ok` false. `code` is lower case with
// hyphens; `message` is for logs; `diagnostic` carries detail that is never shown to the user.
export class BridgeRequestError extends Error {
  readonly code: string;
  readonly diagnostic: string | undefined;

  constructor(code: string, message: string, diagnostic?: string) {
    super(message);
    this.name = 'BridgeRequestError';
    this.code = code;
    this.diagnostic = diagnostic;
  }
}
