<?php
// bench/rows.html in PHP: every row of the same SQLite table (its path in
// BENCH_DB) written as an HTML table row.
echo "<table>\n";
$db = new SQLite3(getenv('BENCH_DB'), SQLITE3_OPEN_READONLY);
$res = $db->query('select id, name, price, added from items order by id');
$n = 0;
while ($row = $res->fetchArray(SQLITE3_NUM)) {
    echo '<tr><td>', $row[0], '</td><td>', $row[1], '</td><td>', $row[2], '</td><td>', $row[3],
        "</td></tr>\n";
    $n++;
}
echo "</table>\nrows: $n\n";
