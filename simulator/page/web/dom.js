// Texts come from logs, simulators and certificates and are never taken for markup.

export function element(name, className, text) {
  const made = document.createElement(name);
  if (className) {
    made.className = className;
  }
  if (text !== undefined) {
    made.textContent = text;
  }
  return made;
}

export function byId(id) {
  return document.getElementById(id);
}

// Touches the document only where something changes.
export function setText(target, text) {
  if (target.textContent !== text) {
    target.textContent = text;
    target.title = text;
  }
}
