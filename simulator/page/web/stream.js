// What the server reports of one unit. Connects again for as long as it takes; each connection begins
// with everything known.

const AGAIN_AFTER = 1000;

export function openStream(unit, { onOpen, onMessage, onLost }) {
  let source = null;
  let timer = 0;

  function connect() {
    source = new EventSource(`units/${unit}/events`);
    source.onopen = onOpen;
    source.onmessage = (event) => onMessage(JSON.parse(event.data));
    source.onerror = () => {
      source.close();
      onLost();
      timer = setTimeout(connect, AGAIN_AFTER);
    };
  }
  connect();

  return {
    restart() {
      source.close();
      clearTimeout(timer);
      connect();
    },
    close() {
      source.close();
      clearTimeout(timer);
    },
  };
}

// Resolves to an empty text, or to why it could not be done.
export async function sendCommand(unit, control, values) {
  try {
    const response = await fetch(`units/${unit}/commands`, {
      method: "POST",
      headers: { "Content-Type": "application/json" },
      body: JSON.stringify({ control, values }),
    });
    return response.ok ? "" : await response.text() || `status ${response.status}`;
  } catch {
    return "the server of this page does not answer";
  }
}
