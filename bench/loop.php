<?php
// bench/loop.html in PHP: 100000 passes, each a condition, two assignments
// and a line with two values.
$i = 0;
$even = 0;
while (true) {
    $i++;
    if ($i > 100000) break;
    $even = $i % 2;
    echo "<tr><td>$i</td><td>$even</td></tr>\n";
}
echo "passes: $i\n";
