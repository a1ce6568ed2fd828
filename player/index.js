// index.js - the page that plays a movie dropped on it.

import {keysHtml} from './controls.js';
import {Player} from './player.js';

const byId = (id) => document.getElementById(id);
const player = new Player(byId('player'));

async function take(file) {
    if (!file) return;
    byId('title').textContent = file.name;
    byId('player').hidden = false;
    byId('drop').classList.add('small');
    try {
        player.load(new Uint8Array(await file.arrayBuffer()));
        byId('problem').textContent = '';
        byId('player').focus();
    } catch (error) {
        byId('problem').textContent = `${file.name} can't be read: ${error.message}`;
    }
}

byId('problem').textContent = '';
byId('help').hidden = false;
byId('keys').innerHTML = keysHtml();
byId('file').onchange = () => take(byId('file').files[0]);
document.ondragover = (event) => {
    event.preventDefault();
    document.body.classList.add('over');
};
document.ondragleave = () => document.body.classList.remove('over');
document.ondrop = (event) => {
    event.preventDefault();
    document.body.classList.remove('over');
    take(event.dataTransfer.files[0]);
};
