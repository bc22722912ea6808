// The door of the machine: requests, and WebSockets that come back. Owns what is known of the
// connection: 'waiting' at first, 'open', 'lost' (the machine is gone or out of reach), 'locked' (no link).

// What the machine refuses: reason, message, and the further fields of docs/api.md.
export class Refusal extends Error {
  constructor(status, error) {
    super(error.message);
    this.status = status;
    this.reason = error.reason;
    this.error = error;
  }
}

const unreachable = {reason: 'lost', message: 'The machine does not answer.'};
const firstRetryMs = 250;
const lastRetryMs = 4000;
const longestMs = 10000;

export class Door {
  constructor() {
    this.state = 'waiting';
    this.listeners = [];
  }

  onState(listener) {
    this.listeners.push(listener);
  }

  setState(state) {
    if (state !== this.state) {
      this.state = state;
      this.listeners.forEach((listener) => listener(state));
    }
  }

  get(path) {
    return this.ask('GET', path);
  }

  post(path, body = {}) {
    return this.ask('POST', path, body);
  }

  // The request outlives the page.
  remove(path) {
    return this.ask('DELETE', path, undefined, {keepalive: true});
  }

  async text(path) {
    return (await this.fetched(path, {})).text();
  }

  async ask(method, path, body, options = {}) {
    const request = {method, ...options};
    if (body !== undefined) {
      request.headers = {'Content-Type': 'application/json'};
      request.body = JSON.stringify(body);
    }
    return (await this.fetched(path, request)).json();
  }

  async fetched(path, request) {
    let answer;
    try {
      answer = await fetch(path, {cache: 'no-store', signal: AbortSignal.timeout(longestMs), ...request});
    } catch {
      this.setState('lost');
      throw new Refusal(0, unreachable);
    }
    this.setState(answer.status === 401 ? 'locked' : 'open');
    if (!answer.ok) {
      const content = await answer.json().catch(() => ({}));
      throw new Refusal(answer.status, content.error ?? {...unreachable, message: answer.statusText});
    }
    return answer;
  }
}

// A WebSocket for as long as it is wanted. `path()` is asked anew at each attempt, `null` waits.
export class Stream {
  constructor(door, path, onMessage) {
    this.door = door;
    this.path = path;
    this.onMessage = onMessage;
    this.retryMs = firstRetryMs;
    this.open();
  }

  open() {
    clearTimeout(this.timer);
    const path = this.path();
    if (path === null) {
      return;
    }
    const socket = new WebSocket(`${location.protocol === 'https:' ? 'wss' : 'ws'}://${location.host}${path}`);
    this.socket = socket;
    socket.onopen = () => {
      this.retryMs = firstRetryMs;
      this.door.setState('open');
    };
    socket.onmessage = (message) => socket === this.socket && this.onMessage(JSON.parse(message.data));
    socket.onclose = () => this.retry(socket);
  }

  retry(socket) {
    if (socket !== this.socket) {
      return;
    }
    if (this.door.state === 'open') {
      this.door.setState('lost');
    }
    this.timer = setTimeout(() => this.open(), this.retryMs);
    this.retryMs = Math.min(2 * this.retryMs, lastRetryMs);
  }

  // To be called when what `path` answers has changed.
  reopen() {
    const former = this.socket;
    this.socket = null;
    if (former?.readyState === WebSocket.CONNECTING) {
      former.onopen = () => former.close();
    } else {
      former?.close();
    }
    this.open();
  }

  send(text) {
    if (this.socket?.readyState === WebSocket.OPEN) {
      this.socket.send(text);
    }
  }
}
